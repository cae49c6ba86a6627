#pragma once

#include <string>

#include <switch.h>

namespace kvx_switch {

/// Whether standard output goes to the journal: its device and inode are those of JOURNAL_STREAM, as the service
/// manager sets it ("8:1234"; null: not set).
bool IsJournal(int descriptor, const char* journal_stream);

/// A line as the journal wants it: "<N>" with the priority before each line of the text (sd-daemon(3)), no time, since
/// the journal has its own.
std::string JournalText(const switch_log_node_t& node);

}  // namespace kvx_switch
