#pragma once

/// Configuration as a tree of elements. A tree belongs to whoever got its root; attributes and texts are borrowed from
/// it. Before a file is parsed, $${name} in it is replaced by the global variable of that name. Errors are logged with
/// file and line.

#include "switch_types.h"

SWITCH_BEGIN_EXTERN_C

struct switch_xml {
  char* name;
  char** attr;  ///< name, value, name, value, ..., null
  char* txt;    ///< never null; the element's text without its children's
  char* free_path;
  switch_size_t off;           ///< position in the parent's text
  struct switch_xml* next;     ///< next element of the same name at this depth
  struct switch_xml* sibling;  ///< next element of another name at this depth
  struct switch_xml* ordered;  ///< next element at this depth, in document order
  struct switch_xml* child;    ///< first element below
  struct switch_xml* parent;
  uint32_t flags;
  switch_bool_t is_switch_xml_root_t;
  uint32_t refs;
};

#define switch_xml_next(xml) ((xml) ? xml->next : NULL)
#define switch_xml_name(xml) ((xml) ? xml->name : NULL)
#define switch_xml_txt(xml) ((xml) ? xml->txt : (char*)"")

/// Reads autoload_configs/<file_path>.xml of the configuration directory. Returns the root (to be freed) and, in
/// `*node`, the element "configuration" named so. Null when there is no such file or it is malformed; both are logged.
SWITCH_DECLARE(switch_xml_t) switch_xml_open_cfg(const char* file_path, switch_xml_t* node, switch_event_t* params);

/// Looks for <tag_name key_name="key_value"> in the files of a section: "configuration" is autoload_configs/*.conf.xml,
/// any other section the directory of its name, *.xml, in the order of the file names. A null key takes the first
/// element of that name. The tree is always the caller's own, whatever `clone` says.
SWITCH_DECLARE(switch_status_t)
switch_xml_locate(const char* section, const char* tag_name, const char* key_name, const char* key_value,
                  switch_xml_t* root, switch_xml_t* node, switch_event_t* params, switch_bool_t clone);

/// Reads vars.xml anew and checks that every configuration file parses. On failure `*err` says which does not (static
/// or thread-owned text, good until the thread's next call).
SWITCH_DECLARE(switch_status_t) switch_xml_reload(const char** err);

SWITCH_DECLARE(switch_xml_t) switch_xml_parse_file(const char* file);
/// `dup` false: takes over heap text `s` and frees it with the tree. Variables are not expanded.
SWITCH_DECLARE(switch_xml_t) switch_xml_parse_str_dynamic(char* s, switch_bool_t dup);
SWITCH_DECLARE(void) switch_xml_free(switch_xml_t xml);

SWITCH_DECLARE(switch_xml_t) switch_xml_child(switch_xml_t xml, const char* name);
SWITCH_DECLARE(switch_xml_t)
switch_xml_find_child(switch_xml_t node, const char* childname, const char* attrname, const char* value);
SWITCH_DECLARE(const char*) switch_xml_attr(switch_xml_t xml, const char* attr);
SWITCH_DECLARE(const char*) switch_xml_attr_soft(switch_xml_t xml, const char* attr);

SWITCH_END_EXTERN_C
