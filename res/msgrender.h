// The text of a message table entry with its insertion strings filled in, as a viewer shows
// an event: the rules of FormatMessageW with an argument array and no line width, which are
// the message compiler's:
//  - %1 ... %99 is that insertion string, inserted as it is (its own % are not read). A
//    "!format!" after the number is accepted and not applied: event log inserts are strings.
//    A sequence whose string was not given stays as it is written, as Event Viewer shows it.
//  - %n is a line break (CR LF), %r a carriage return alone, %t a tab.
//  - %0 ends the message there, without the line break that follows it.
//  - % and any other character is that character: %% %. %! and "% ".
//  - Everything else is copied, the CR LF that ends each line of the table's text included.
// For the viewers (orvsim events) and the tests; the system itself only reports ids.
#pragma once

#include "pal/windef.h"

#include <string>
#include <string_view>
#include <vector>

std::basic_string<WCHAR> RenderMessage(std::basic_string_view<WCHAR> text,
                                       const std::vector<std::basic_string<WCHAR>>& strings);
