// Everything that a calling program includes.
#ifndef KP_LOG_H
#define KP_LOG_H

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

#endif
