// The whole library: every public header.
#ifndef QEL_QEL_H
#define QEL_QEL_H

#include "qel/api/echo_lua.h"
#include "qel/api/qel_api_aec.h"
#include "qel/core/alloc/qel_hoard.h"
#include "qel/core/array/qel_array.h"
#include "qel/core/array/qel_array_string.h"
#include "qel/core/config/qel_config_base.h"
#include "qel/core/config/qel_config_ryl.h"
#include "qel/core/hash/qel_hash.h"
#include "qel/core/hash/qel_hash_tree.h"
#include "qel/core/qel_debug.h"
#include "qel/core/qel_export.h"
#include "qel/core/qel_io.h"
#include "qel/core/qel_string.h"
#include "qel/core/qel_version.h"
#include "qel/core/queue/qel_queue.h"
#include "qel/core/source/qel_source.h"
#include "qel/core/source/qel_source_file.h"
#include "qel/math/fft/qel_fft.h"
#include "qel/math/vector/qel_vector.h"
#include "qel/spu/aec/qel_aec.h"
#include "qel/spu/aec/qel_aec_cfg.h"
#include "qel/spu/aec/qel_aec_mute.h"
#include "qel/spu/aec/qel_aec_nlp.h"
#include "qel/spu/frame/qel_framing.h"
#include "qel/spu/sigp/qel_sigp.h"
#include "qel/spu/sigp/qel_sigp_frame_separator.h"
#include "qel/spu/svad/qel_svad.h"

#endif
