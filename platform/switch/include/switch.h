#pragma once

/// The switch's API as a module sees it. Not part of it: g711.h and switch_media_server.h.

#include "switch_platform.h"
#include "switch_types.h"

#include "switch_apr.h"
#include "switch_channel.h"
#include "switch_console.h"
#include "switch_core.h"
#include "switch_event.h"
#include "switch_loadable_module.h"
#include "switch_log.h"
#include "switch_module_interfaces.h"
#include "switch_mprintf.h"
#include "switch_utils.h"
#include "switch_xml.h"
