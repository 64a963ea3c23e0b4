// deskaid: the whole public interface in one include.
#pragma once

// Diagnostics
#include "diag/debug_trace.h"
#include "diag/log_format.h"
#include "diag/log_writer.h"

// Shared helpers
#include "common/rc4.h"
