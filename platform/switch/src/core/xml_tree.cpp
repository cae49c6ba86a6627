#include <switch.h>

switch_xml_t switch_xml_child(switch_xml_t xml, const char* name) {
  if (!xml || !name) return nullptr;
  for (switch_xml_t child = xml->child; child; child = child->sibling) {
    if (!strcmp(child->name, name)) return child;
  }
  return nullptr;
}

switch_xml_t switch_xml_find_child(switch_xml_t node, const char* childname, const char* attrname, const char* value) {
  if (!attrname || !value) return nullptr;
  for (switch_xml_t child = switch_xml_child(node, childname); child; child = child->next) {
    const char* found = switch_xml_attr(child, attrname);
    if (found && !strcasecmp(found, value)) return child;
  }
  return nullptr;
}

const char* switch_xml_attr(switch_xml_t xml, const char* attr) {
  if (!xml || !attr) return nullptr;
  for (char** at = xml->attr; at && at[0]; at += 2) {
    if (!strcmp(at[0], attr)) return at[1];
  }
  return nullptr;
}

const char* switch_xml_attr_soft(switch_xml_t xml, const char* attr) {
  const char* value = switch_xml_attr(xml, attr);
  return value ? value : "";
}

namespace {

void free_element(switch_xml_t xml) {
  for (switch_xml_t child = xml->child; child;) {
    switch_xml_t next = child->ordered;
    free_element(child);
    child = next;
  }
  for (char** at = xml->attr; at && *at; ++at) free(*at);
  free(xml->attr);
  free(xml->name);
  free(xml->txt);
  free(xml->free_path);
  free(xml);
}

}  // namespace

void switch_xml_free(switch_xml_t xml) {
  if (!xml) return;
  // Whatever element of the tree comes in, the tree goes.
  while (xml->parent) xml = xml->parent;
  free_element(xml);
}
