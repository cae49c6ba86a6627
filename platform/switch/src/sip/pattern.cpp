#include "sip/pattern.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

namespace kvx_switch {

namespace {

// Far more than a dialplan's expressions need, far less than a hostile subject could ask for.
constexpr uint32_t kMostMatchSteps = 100000;

std::string MessageOf(int code) {
  PCRE2_UCHAR text[256] = {};
  pcre2_get_error_message(code, text, sizeof(text));
  return reinterpret_cast<const char*>(text);
}

}  // namespace

void Pattern::FreeCode::operator()(void* code) const {
  pcre2_code_free(static_cast<pcre2_code*>(code));
}

std::shared_ptr<const Pattern> Pattern::Compile(const std::string& text, std::string& error) {
  int code = 0;
  PCRE2_SIZE offset = 0;
  pcre2_code* compiled =
      pcre2_compile(reinterpret_cast<PCRE2_SPTR>(text.data()), text.size(), 0, &code, &offset, nullptr);
  if (compiled) return std::shared_ptr<const Pattern>(new Pattern(compiled));
  error = MessageOf(code) + " at character " + std::to_string(offset + 1);
  return nullptr;
}

std::optional<std::vector<std::string>> Pattern::Search(const std::string& subject) const {
  const auto* code = static_cast<const pcre2_code*>(code_.get());
  const std::unique_ptr<pcre2_match_context, void (*)(pcre2_match_context*)> context(
      pcre2_match_context_create(nullptr), pcre2_match_context_free);
  const std::unique_ptr<pcre2_match_data, void (*)(pcre2_match_data*)> data(
      pcre2_match_data_create_from_pattern(code, nullptr), pcre2_match_data_free);
  if (!context || !data) return std::nullopt;
  pcre2_set_match_limit(context.get(), kMostMatchSteps);

  const int count =
      pcre2_match(code, reinterpret_cast<PCRE2_SPTR>(subject.data()), subject.size(), 0, 0, data.get(), context.get());
  if (count <= 0) return std::nullopt;
  const PCRE2_SIZE* ends = pcre2_get_ovector_pointer(data.get());
  std::vector<std::string> groups;
  for (int i = 0; i < count; ++i) {
    const PCRE2_SIZE start = ends[2 * i];
    const PCRE2_SIZE end = ends[2 * i + 1];
    groups.push_back(start == PCRE2_UNSET || end < start ? "" : subject.substr(start, end - start));
  }
  return groups;
}

}  // namespace kvx_switch
