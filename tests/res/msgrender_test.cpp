// The rendering of message texts in FormatMessageW's manner, one rule per case.
#include "res/msgrender.h"
#include "tests/support/paltest.h"

namespace {

using orvtest::Narrow;

struct Case
{
    const char* name;
    std::u16string text;
    std::vector<std::u16string> strings;
    std::u16string expected;
};

TEST(RenderMessageTest, FollowsTheMessageCompilersRules)
{
    std::vector<std::u16string> twelve;
    for (int i = 1; i <= 12; ++i)
        twelve.push_back(u"s" + orvtest::Wide(std::to_string(i)));
    const Case cases[] = {
        {"plain text and its line ends", u"a b\r\nc\r\n", {}, u"a b\r\nc\r\n"},
        {"inserts in any order", u"%2-%1-%2", {u"x", u"y"}, u"y-x-y"},
        {"two-digit insert", u"%12|%1", twelve, u"s12|s1"},
        {"at most two digits", u"%123", twelve, u"s123"},
        {"insert with a format", u"[%1!s!] [%2!ws!]", {u"a", u"b"}, u"[a] [b]"},
        {"insert not given stays", u"%1 %3 %4!s!", {u"a"}, u"a %3 %4!s!"},
        {"no strings at all", u"SetId %1.\r\n", {}, u"SetId %1.\r\n"},
        {"inserted text is not read again", u"<%1>", {u"%2 %n %%"}, u"<%2 %n %%>"},
        {"empty insert", u"[%1]", {u""}, u"[]"},
        {"%n is CR LF", u"a%nb", {}, u"a\r\nb"},
        {"%r is CR alone", u"a.%r\r\nb", {}, u"a.\r\r\nb"},
        {"%t is a tab", u"a%tb", {}, u"a\tb"},
        {"%0 ends the message", u"prompt: %0\r\n", {}, u"prompt: "},
        {"%0 drops what follows", u"a%0b%1", {u"x"}, u"a"},
        {"escaped punctuation", u"100%% %. %! % x", {}, u"100% . !  x"},
        {"other letters lose the %", u"%b%q", {}, u"bq"},
        {"lone % at the end", u"50%", {}, u"50%"},
        {"non-ASCII", u"caf\u00e9 %1", {u"\U0001F600"}, u"caf\u00e9 \U0001F600"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(Narrow(c.expected), Narrow(RenderMessage(c.text, c.strings))) << c.name;
}

} // namespace
