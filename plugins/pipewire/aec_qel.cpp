// The canceller as a plugin of PipeWire, for its module echo-cancel: library.name =
// aec/libspa-aec-qel.
#include <spa/interfaces/audio/aec.h>
#include <spa/support/log.h>
#include <spa/support/plugin.h>
#include <spa/utils/names.h>
#include <stdio.h>
#include <stdlib.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include "plugins/pipewire/channel.hpp"
#include "plugins/pipewire/settings.hpp"
#include "qel/core/qel_debug.h"

namespace {

struct Plugin {
    spa_handle handle;  // first: the server knows the plugin by it
    spa_audio_aec aec;
    spa_log* log;
    spa_hook_list listeners;
    std::vector<Channel> channels;
    std::string latency;  // what `aec.latency` and `props` point to
    std::string delay;
    spa_dict_item item;
    spa_dict props;
};

/// One line in the server's log; a server without one hears nothing.
void say(spa_log* log, spa_log_level level, const std::string& text) {
    if (log) spa_log_lev(log, level, "aec-qel: %s", text.c_str());
}

/// What the library logs while this lives, a line at a time in the server's log.
class LogToServer {
  public:
    explicit LogToServer(spa_log* log) : log_(log), stream_(open_memstream(&text_, &size_)) {
        if (stream_) qel_debug_set_log_fp(stream_);
    }
    ~LogToServer() {
        if (!stream_) return;
        qel_debug_set_log_fp(nullptr);
        fclose(stream_);
        char* rest = text_;
        while (const char* line = strsep(&rest, "\n")) tell(line);
        free(text_);
    }
    LogToServer(LogToServer&&) = delete;

  private:
    /// "10:22:31.004711 [W] qel_api_aec:explain:LINE: 2:5: aec > ..."; a date line has no level.
    void tell(const char* line) {
        const char* const level = strchr(line, '[');
        const char* const message = level ? strstr(level, ": ") : nullptr;
        if (!message) return;
        say(log_, level[1] == 'E' ? SPA_LOG_LEVEL_ERROR : SPA_LOG_LEVEL_WARN, message + 2);
    }

    spa_log* log_;
    char* text_ = nullptr;
    size_t size_ = 0;
    FILE* stream_;
};

/// A canceller for each channel. They are made alike, so what the first one finds to say is enough.
std::vector<Channel> make_channels(const std::string& text, const spa_audio_info_raw& info,
                                   spa_log* log) {
    std::vector<Channel> channels;
    channels.reserve(info.channels);
    for (uint32_t i = 0; i < info.channels; ++i) {
        const LogToServer to_server(i == 0 ? log : nullptr);
        channels.emplace_back(text, info.rate);
    }
    return channels;
}

/// Asks for blocks that bring one frame each and says what comes of it.
void publish(Plugin* plugin, uint32_t rate) {
    const Channel& channel = plugin->channels.front();
    const std::string at_rate = "/" + std::to_string(rate);
    const size_t delay = channel.latency(channel.block());
    plugin->latency = std::to_string(channel.block()) + at_rate;
    plugin->delay = std::to_string(delay) + at_rate;
    plugin->aec.latency = plugin->latency.c_str();
    plugin->item = SPA_DICT_ITEM_INIT("qel.latency", plugin->delay.c_str());
    plugin->props = SPA_DICT_INIT(&plugin->item, 1);
    say(plugin->log, SPA_LOG_LEVEL_INFO,
        std::to_string(plugin->channels.size()) + " channels, frames of " +
            std::to_string(channel.frame_size()) + " samples at " +
            std::to_string(channel.inner_rate()) + " Hz; in blocks of " + plugin->latency +
            " s the output comes " + plugin->delay + " s late");
}

int init(void* object, const spa_dict* args, const spa_audio_info_raw* info) {
    Plugin* const plugin = static_cast<Plugin*>(object);
    if (info->channels == 0 || info->rate == 0) return -EINVAL;
    try {
        const std::string text = configuration_text(args, info->rate);
        say(plugin->log, SPA_LOG_LEVEL_DEBUG, text);
        plugin->channels = make_channels(text, *info, plugin->log);
        publish(plugin, info->rate);
        return 0;
    } catch (const std::bad_alloc&) {
        return -ENOMEM;
    } catch (const std::exception& refusal) {
        say(plugin->log, SPA_LOG_LEVEL_ERROR, std::string("no canceller: ") + refusal.what());
        return -EINVAL;
    }
}

int run(void* object, const float* rec[], const float* play[], float* out[], uint32_t n) {
    std::vector<Channel>& channels = static_cast<Plugin*>(object)->channels;
    for (size_t i = 0; i < channels.size(); ++i) channels[i].run(rec[i], play[i], out[i], n);
    return 0;
}

int add_listener(void* object, spa_hook* listener, const spa_audio_aec_events* events, void* data) {
    Plugin* const plugin = static_cast<Plugin*>(object);
    spa_hook_list_append(&plugin->listeners, listener, events, data);
    const spa_audio_aec_info info = {SPA_AUDIO_AEC_CHANGE_MASK_PROPS, &plugin->props};
    if (!plugin->channels.empty() && events->info) events->info(data, &info);
    return 0;
}

// Nothing is done when streams start and stop: what the filter has learnt of the room stays.
constexpr spa_audio_aec_methods kMethods = [] {
    spa_audio_aec_methods methods = {};  // later servers know more of them
    methods.version = SPA_VERSION_AUDIO_AEC_METHODS;
    methods.add_listener = add_listener;
    methods.init = init;
    methods.run = run;
    return methods;
}();

int get_interface(spa_handle* handle, const char* type, void** interface) {
    if (strcmp(type, SPA_TYPE_INTERFACE_AUDIO_AEC) != 0) return -ENOENT;
    *interface = &reinterpret_cast<Plugin*>(handle)->aec;
    return 0;
}

int clear(spa_handle* handle) {
    reinterpret_cast<Plugin*>(handle)->~Plugin();
    return 0;
}

size_t get_size(const spa_handle_factory*, const spa_dict*) { return sizeof(Plugin); }

int init_plugin(const spa_handle_factory*, spa_handle* handle, const spa_dict*,
                const spa_support* support, uint32_t n_support) {
    Plugin* const plugin = new (handle) Plugin{};
    plugin->handle = {SPA_VERSION_HANDLE, get_interface, clear};
    plugin->log =
        static_cast<spa_log*>(spa_support_find(support, n_support, SPA_TYPE_INTERFACE_Log));
    spa_hook_list_init(&plugin->listeners);
    plugin->aec.iface =
        SPA_INTERFACE_INIT(SPA_TYPE_INTERFACE_AUDIO_AEC, SPA_VERSION_AUDIO_AEC, &kMethods, plugin);
    plugin->aec.name = "qel";
    plugin->aec.info = &plugin->props;
    return 0;
}

int enum_interface_info(const spa_handle_factory*, const spa_interface_info** info,
                        uint32_t* index) {
    static constexpr spa_interface_info kInfo = {SPA_TYPE_INTERFACE_AUDIO_AEC};
    if (*index > 0) return 0;
    *info = &kInfo;
    ++*index;
    return 1;
}

constexpr spa_handle_factory kFactory = {
    SPA_VERSION_HANDLE_FACTORY, SPA_NAME_AEC, nullptr, get_size, init_plugin, enum_interface_info};

}  // namespace

extern "C" SPA_EXPORT int spa_handle_factory_enum(const spa_handle_factory** factory,
                                                  uint32_t* index) {
    if (*index > 0) return 0;
    *factory = &kFactory;
    ++*index;
    return 1;
}
