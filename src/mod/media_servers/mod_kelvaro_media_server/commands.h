#pragma once

// The console commands: what is registered, what each does, and how reports are drawn.

#include <switch.h>

#include <boost/property_tree/ptree_fwd.hpp>
#include <iosfwd>
#include <string>
#include <vector>

/// Registers the eight commands, in the order in which they are listed, and their console completions.
void register_commands(switch_loadable_module_interface_t** module_interface);

// The handlers answer on the stream; they return SWITCH_STATUS_SUCCESS also when what they answer is a failure. `cmd`
// may be null. Nothing is thrown out of them.

switch_status_t kvrms_stats_function(const char* cmd, switch_core_session_t* session, switch_stream_handle_t* stream);
switch_status_t kvrms_stats_xml_function(const char* cmd, switch_core_session_t* session,
                                         switch_stream_handle_t* stream);
switch_status_t ms_count_show_function(const char* cmd, switch_core_session_t* session, switch_stream_handle_t* stream);
switch_status_t kvrms_control_function(const char* cmd, switch_core_session_t* session, switch_stream_handle_t* stream);
switch_status_t kvrms_control_xml_function(const char* cmd, switch_core_session_t* session,
                                           switch_stream_handle_t* stream);
switch_status_t kvrms_listhw_function(const char* cmd, switch_core_session_t* session, switch_stream_handle_t* stream);
switch_status_t kvrms_listhw_xml_function(const char* cmd, switch_core_session_t* session,
                                          switch_stream_handle_t* stream);
switch_status_t kvrms_rtcp_stats_function(const char* cmd, switch_core_session_t* session,
                                          switch_stream_handle_t* stream);

/// Appends the words of a line, in lower case; blanks alone separate. False when there are none in the end.
bool tokenize_arguments(const char* args, std::vector<std::string>& tokenized_args);
/// The common body of the report commands; a prefix, when not null, becomes the first word. False when there is no
/// report to show; nothing has been written then. Lets the tree library's exceptions pass.
bool kvrms_generic_function(const char* cmd, const char* prefix, bool xml_format, switch_stream_handle_t* stream);

/// Draws the report that the words ask for: kind, selector, address. On false the text says what is wrong, if anything
/// is to be said. Lets the tree library's exceptions pass, as do the four below.
bool mod_media_server_get_report(const std::vector<std::string>& argv, std::ostream& out, bool IsXML);
/// A table: a header from the first row below the path, a rule, and a line for each row.
bool generate_plain_text_report(std::ostream& os, boost::property_tree::ptree& pt, const char* root_str);
/// One line of XML, numbers taken off "module".
bool generate_xml_report(std::ostream& os, boost::property_tree::ptree& pt, const char* root_str);
bool fill_xml_report(std::ostream& os, boost::property_tree::ptree& pt, const char* root_str);
/// Copies, without the decimal digits that directly follow the token wherever it occurs.
void patch_output_string(const std::string& in, std::ostream& out, const std::string& token);

/// Puts media servers into or out of service, or hangs up the calls on them. `argv` holds two words at least. False for
/// a malformed request and when the servers asked for cannot be told. Lets the tree library's exceptions pass.
bool mod_media_server_exec_control_cmd(int argc, char** argv, switch_stream_handle_t* stream);
