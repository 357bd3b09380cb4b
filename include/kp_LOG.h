// Everything that a calling program includes.
//
// Nothing has to be called at the end of the process, and nothing may be called from a signal
// handler. A child of fork() may use the library when no other thread of the parent was inside it;
// otherwise it may only exec. A program that calls ICU's u_cleanup() does so after its last use of
// the library, in any thread.
#ifndef KP_LOG_H
#define KP_LOG_H

#include "kp_LOG_AttributeKey.h"
#include "kp_LOG_AttributeType.h"
#include "kp_LOG_EntryAccess.h"
#include "kp_LOG_EntryCounter.h"
#include "kp_LOG_EntryFilter.h"
#include "kp_LOG_LogConfig.h"
#include "kp_LOG_LogEntry.h"
#include "kp_LOG_RenderMessage.h"
#include "kp_LOG_debug_log.h"
#include "kp_LOG_errors.h"
#include "kp_LOG_filenames.h"
#include "kp_LOG_version.h"

#endif
