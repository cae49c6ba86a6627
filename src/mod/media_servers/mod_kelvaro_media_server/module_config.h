#pragma once

#include <switch.h>

#include <boost/property_tree/ptree.hpp>

namespace kvx_media_server {

/// Reads the module's configuration file into KELVARO_MEDIA_SERVER_CONFIG and STATSFILTER, whose texts go into the
/// pool, and into the flag, which is only ever turned on. SWITCH_STATUS_TERM when the file cannot be opened (logged) or
/// a path in it is neither absolute nor a URL (not logged).
switch_status_t read_module_configuration(switch_memory_pool_t* pool, bool& enable_jsr309_trace);

/// Reads the control library's configuration file, which KELVARO_MEDIA_SERVER_CONFIG names, into the tree.
/// SWITCH_STATUS_TERM, logged, when there is no such file. Throws the tree library's error when it is malformed.
switch_status_t read_control_library_configuration(boost::property_tree::ptree& tree);

}  // namespace kvx_media_server
