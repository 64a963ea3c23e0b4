// deskaid: the whole public interface in one include.
#pragma once

// Shared helpers
#include "deskaid/common/rc4.h"

// Diagnostics
#include "deskaid/diag/code_address.h"
#include "deskaid/diag/crash_handler.h"
#include "deskaid/diag/debug_trace.h"
#include "deskaid/diag/internet_error_text.h"
#include "deskaid/diag/log_export.h"
#include "deskaid/diag/log_format.h"
#include "deskaid/diag/log_writer.h"
#include "deskaid/diag/symbol_engine.h"

// Arithmetic and codecs
#include "deskaid/codec/base64.h"
#include "deskaid/codec/md5.h"
#include "deskaid/math/bigint.h"
#include "deskaid/math/modpower.h"

#ifdef _WIN32
// Message boxes and the hyperlink control
#include "deskaid/msgbox/message_dialog.h"
#include "deskaid/ui/hyperlink.h"
#endif
