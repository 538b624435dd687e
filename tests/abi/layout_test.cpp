// Layout of the public records, which hosts compile against: size on 64-bit and on 32-bit
// processors, and the fields in their order (designators out of order do not compile).
#include "qel/qel.h"

namespace {

#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

// FIELDS(a, b, ...) is .a = {}, .b = {}, ...
#define AGAIN(...) AGAIN3(AGAIN3(AGAIN3(AGAIN3(__VA_ARGS__))))
#define AGAIN3(...) AGAIN2(AGAIN2(AGAIN2(AGAIN2(__VA_ARGS__))))
#define AGAIN2(...) AGAIN1(AGAIN1(AGAIN1(AGAIN1(__VA_ARGS__))))
#define AGAIN1(...) __VA_ARGS__
#define NOTHING
#define NEXT() FIELD
#define FIELD(first, ...) .first = {}, __VA_OPT__(NEXT NOTHING()(__VA_ARGS__))
#define FIELDS(...) AGAIN(FIELD(__VA_ARGS__))

#define RECORD(size64, size32, type, ...) \
    static_assert(sizeof(type{FIELDS(__VA_ARGS__)}) == (sizeof(void*) == 8 ? size64 : size32))

RECORD(32, 16, qel_api_aec_t, cfg, aec, reserved, cfg_is_binary, flags_spare);
RECORD(80, 44, qel_hoard, free_q, used_q, user, new_fn, delete_fn, link_offset, max_free);
RECORD(40, 28, qel_array, data, count, step, item_size, capacity, append_fn, clean_fn);
RECORD(24, 12, qel_config_item, type, name, value);
RECORD(32, 16, qel_config_items, link, parent, hash);
RECORD(104, 56, qel_config_ryl, root, scope, sections, loader_data, loader, state, return_state,
       name_tok, value_tok, var_tok, array, depth, quote, escape_acc, flags);
RECORD(24, 16, qel_hash_tree_node, children, value, hash_value);
RECORD(32, 16, qel_hash_tree, root, count, hash, keycomp);
RECORD(16, 12, qel_string, data, length, owned, capacity);
RECORD(16, 8, qel_queue_node, prev, next);
RECORD(24, 12, qel_queue, head, tail, count);
RECORD(64, 32, qel_source, get, unget, read, read_string, reserved, scratch, data, flags);
RECORD(16, 8, qel_source_loader, user_data, load);
RECORD(48, 24, qel_source_file_item, stream, buffer, end, pos, seek, buffer_size, eof);
RECORD(8, 8, qel_fft_cpx_float32, r, i);
RECORD(8, 8, qel_fft_cpx_int32, r, i);
RECORD(4, 4, qel_fft_cpx_int16, r, i);
RECORD(48, 28, qel_fft_cfg_float32, nfft, factors, twiddles, buffer, extra_twiddles, forward_scaled,
       backward_scaled);
RECORD(40, 20, qel_fft_r2c_cfg_float32, buffer, ncfft, factors, twiddles, super_twiddles);
RECORD(16, 8, qel_fft_r2c_state_union, plan, type);
RECORD(16, 16, qel_vector_float32, len, capacity, reserved);
RECORD(16, 16, qel_vector_int32, len, capacity, reserved);
RECORD(16, 16, qel_vector_int16, len, capacity, reserved);
RECORD(16, 8, qel_vector_union, vec, type);
RECORD(560, 308, qel_aec, cfg, nlp, mute, ref_vad, frame_vad, norm_gain, delta_floor_level,
       norm_ceiling, post_error_gain, step_size, mic, ref, out, mic_pass, fft, window, delta_floor,
       norm, ref_power_sum, error_spec, step_spec, mic_power, echo_power, mic_frame_win,
       ref_frame_win, mic_spec, ref_spec, mic_hist, ref_hist, overlap, ref_spec_hist, post_power,
       ref_power_smooth, ref_power_hist, echo_spec, weights, post_error, mic_sep, ref_sep, output,
       nlp_cfg, mute_cfg);
RECORD(144, 132, qel_aec_cfg, nlp, mute, vad, type, md_type, hdr_gain_db, freqs, frame_size, taps,
       offset_bins, nb_banks, fft_size, fft_bins, num_bank, use_nlp, use_vad, use_bypass, use_hdr,
       use_mute, flags_spare, cfg_tree);
RECORD(24, 24, qel_aec_measures, mic_db, ref_db, out_db, leak, speech, reduction_db);
RECORD(72, 72, qel_aec_stats, bypassed, muted, processed, frame, smoothed);
RECORD(24, 24, qel_aec_mute_cfg, md_type, freqs, frame_size, num_states, mute_frames, noise_gain,
       mute_time);
RECORD(64, 32, qel_aec_mute, cfg, count, white, noise, states);
RECORD(20, 20, qel_aec_nlp_cfg, md_type, freqs, frame_size, nb_banks, offset_bins, fft_size,
       fft_bins, num_bank);
RECORD(352, 188, qel_aec_nlp, cfg, leak_mult, echo_suppress, echo_suppress_active, adapt_count,
       min_leak, over_sub_base, over_sub_scale, pey, pyy, band_left, band_right, weight_left,
       weight_right, gain2, time, gain_floor, spec, post, prior, gain, residual, ps, out, error_avg,
       echo_avg, echo_noise, old_ps, zeta, overlap, scratch);
RECORD(12, 12, qel_framing_cfg, mtype, frame_len, bit_extends, use_16bit, use_24bit, use_32bit,
       flags_spare);
RECORD(80, 44, qel_framing_frame, hoard_link, queue_link, samples, windowed, judged, owner, release,
       sequence, reserved, tag);
RECORD(136, 76, qel_framing, cfg, pool, buffer, ready, counter);
RECORD(48, 24, qel_sigp_frame, hoard_link, queue_link, samples, sequence);
RECORD(136, 80, qel_sigp_frame_separator, pool, buffer, ready, frame_len, frame_bytes, counter);
RECORD(28, 28, qel_svad_cfg, framing, frame_len, spe2sil_num, sil2spe_num, amp_thresh);
RECORD(64, 36, qel_svad, cfg, framing, window, frames, state, quiet_run, loud_run);

}  // namespace
