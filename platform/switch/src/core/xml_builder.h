#pragma once

#include <string>

#include <switch.h>

namespace kvx_switch {

/// Parses a document into a tree that switch_xml_free ends. Null when it is malformed; `error` then says what is wrong
/// and `line` where, counted from 1.
switch_xml_t ParseXml(const std::string& text, std::string& error, unsigned long& line);

/// A new last element below `parent`; name and text are copied.
switch_xml_t AppendXmlElement(switch_xml_t parent, const std::string& name, const std::string& text);

}  // namespace kvx_switch
