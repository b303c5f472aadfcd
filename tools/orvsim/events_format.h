// What `orvsim events` shows of one event: its level, its ids, its rendered message and its
// data, as text for a reader or as one JSON object per line.
#pragma once

#include "pal/paleventlog.h"

#include <string>

namespace orvsim::events {

// "Error", "Warning", "Information", "Success", "Audit Success", "Audit Failure" or "Type N".
std::string LevelName(WORD wType);

// The event's description: the message of the system's own source rendered with the event's
// insertion strings, otherwise Event Viewer's note that the description cannot be found,
// with the strings. UTF-16 with the message table's CR LF line ends.
std::u16string Describe(const pal::EventLogRecord& record);

// "05 00 07 80": each byte in upper-case hexadecimal, separated by single spaces.
std::string HexBytes(const std::vector<BYTE>& bytes);

// Local time of a FILETIME, "YYYY-MM-DD hh:mm:ss.mmm".
std::string LocalTimeText(ULONGLONG ullFileTime);

// The text form, ending with an empty line:
//   [record] date time  Level  Source  Event ID code (0xFULLID)
//       message lines
//       Data: 05 00 07 80
std::string FormatText(const pal::EventLogRecord& record);

// One JSON object, without a line end.
std::string FormatJson(const pal::EventLogRecord& record);

} // namespace orvsim::events
