#pragma once

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

/// Configuration elements that remember the line they stand on, so that a mistake in their values can be reported where
/// the reader will look for it.
namespace kvx_switch {

struct LocatedElement {
  std::string name;
  int line = 0;  ///< of the start tag, from 1
  std::vector<std::pair<std::string, std::string>> attributes;
  std::vector<LocatedElement> children;

  /// Null when there is no such attribute.
  const std::string* Attribute(const std::string& attribute) const;
};

/// Reads a file; $${name} in it is replaced by the global variable of that name, or by nothing. False and `error`, as
/// "file:line: what", when it cannot be read or is not well-formed.
bool ReadLocatedXml(const std::string& path, LocatedElement& root, std::string& error);

/// Paths of the "*.xml" files in `directory`, sorted. False and `error` when it cannot be listed.
bool ListXmlFiles(const std::string& directory, std::vector<std::string>& paths, std::string& error);

/// "file:line: "
std::string At(const std::string& path, const LocatedElement& element);

/// An attribute that nobody reads is a mistyped one: a line for each that is not among the known ones, with `end`
/// behind it.
std::string UnknownAttributes(const std::string& path, const LocatedElement& element,
                              std::initializer_list<const char*> known, const char* end = "");

/// Where the file last gives the parameter <param name="NAME" .../> of a section: "file:line: "; "file: " when it does
/// not.
std::string PlaceOfParameter(const std::string& path, const std::string& name);

}  // namespace kvx_switch
