#include "module_config.h"

#include <strings.h>

#include <boost/property_tree/xml_parser.hpp>
#include <cstdio>
#include <memory>

#include "mod_global.h"

namespace kvx_media_server {

namespace {

constexpr char kConfigurationFile[] = "kelvaro_media_server.conf";

struct XmlFree {
  void operator()(switch_xml_t xml) const { switch_xml_free(xml); }
};
using XmlDocument = std::unique_ptr<switch_xml, XmlFree>;

bool set_path(switch_memory_pool_t* pool, const char* value, const char*& path) {
  if (!switch_is_file_path(value)) return false;
  path = switch_core_strdup(pool, value);
  return true;
}

}  // namespace

switch_status_t read_module_configuration(switch_memory_pool_t* pool, bool& enable_jsr309_trace) {
  switch_xml_t configuration = nullptr;
  const XmlDocument document(switch_xml_open_cfg(kConfigurationFile, &configuration, nullptr));
  if (!document) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "Open of %s failed\n", kConfigurationFile);
    return SWITCH_STATUS_TERM;
  }
  const switch_xml_t settings = switch_xml_child(configuration, "settings");
  for (switch_xml_t param = switch_xml_child(settings, "param"); param != nullptr; param = switch_xml_next(param)) {
    const char* name = switch_xml_attr_soft(param, "name");
    const char* value = switch_xml_attr_soft(param, "value");
    if (strcasecmp(name, "config") == 0) {
      if (!set_path(pool, value, KELVARO_MEDIA_SERVER_CONFIG)) return SWITCH_STATUS_TERM;
    } else if (strcasecmp(name, "statsfilter") == 0) {
      if (!set_path(pool, value, STATSFILTER)) return SWITCH_STATUS_TERM;
    } else if (strcasecmp(name, "enable_jsr309_trace") == 0) {
      if (strcasecmp(value, "true") == 0) enable_jsr309_trace = true;
    }
  }
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t read_control_library_configuration(boost::property_tree::ptree& tree) {
  if (KELVARO_MEDIA_SERVER_CONFIG == nullptr) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "CANNOT find config, stop the module!\n");
    return SWITCH_STATUS_TERM;
  }
  std::FILE* file = std::fopen(KELVARO_MEDIA_SERVER_CONFIG, "r");
  if (file == nullptr) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "Cannot find config file %s\n",
                      KELVARO_MEDIA_SERVER_CONFIG);
    return SWITCH_STATUS_TERM;
  }
  std::fclose(file);
  boost::property_tree::read_xml(KELVARO_MEDIA_SERVER_CONFIG, tree);
  return SWITCH_STATUS_SUCCESS;
}

}  // namespace kvx_media_server
