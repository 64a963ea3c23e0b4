// deskaid: the whole public interface in one include.
#pragma once

// Shared helpers
#include "common/rc4.h"

// Diagnostics
#include "diag/debug_trace.h"
#include "diag/internet_error_text.h"
#include "diag/log_export.h"
#include "diag/log_format.h"
#include "diag/log_writer.h"
#include "diag/symbol_engine.h"

// Arithmetic and codecs
#include "codec/base64.h"
#include "codec/md5.h"
#include "math/bigint.h"
#include "math/modpower.h"

#ifdef _WIN32
// Message boxes and the hyperlink control
#include "msgbox/message_dialog.h"
#include "ui/hyperlink.h"
#endif
