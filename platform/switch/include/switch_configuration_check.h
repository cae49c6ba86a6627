#pragma once

/// A mistake in a configuration file should be named where it stands, all of them at once, and before the switch takes
/// calls. The switch does that for its own files; a module does it for those that it alone understands.

#include "switch_platform.h"
#include "switch_types.h"

SWITCH_BEGIN_EXTERN_C

/// Optional in a module NAME, as the exported function NAME_check_configuration: reads the module's configuration and
/// logs each mistake in it, "file:line: what", at WARNING or above. It changes nothing, opens nothing and starts
/// nothing. Called before the module's load function, and by kvx-switch --check in its stead.
typedef void (*switch_module_check_configuration_func_t)(void);

/// The line of the file on which the element begins, from 1; 0 for an element that comes from no file, and for null.
SWITCH_DECLARE(int) switch_xml_line(switch_xml_t xml);

/// As switch_xml_parse_file, with "$${name}" left as it stands.
SWITCH_DECLARE(switch_xml_t) switch_xml_parse_file_as_it_is(const char* file);

SWITCH_END_EXTERN_C
