// `orvsim events`: the emulated machine's event log, newest last, in the manner of
// `wevtutil qe`: each event with its time, level, source, ids, rendered message and raw data.
#include "command.h"
#include "events_format.h"

#include "pal/eventlog.h"
#include "pal/palcontrol.h"
#include "pal/winerror.h"

#include <cctype>
#include <cstdio>
#include <iostream>

namespace orvsim {

namespace {

class EventsCommand : public Command
{
public:
    explicit EventsCommand(CLI::App& app)
    {
        m_pEvents = app.add_subcommand(
            "events", "Show the event log, newest last: time, level, source, event id, the "
                      "rendered message and the raw data");
        m_pEvents->add_option("--source", m_source, "Only the events of this source");
        m_pEvents->add_option("--last", m_cLast, "Only the newest N events (after the filters)")
            ->check(CLI::PositiveNumber);
        m_pEvents->add_option("--level", m_level, "Only the events of this level")
            ->check(CLI::IsMember({"error", "warning", "information"}, CLI::ignore_case));
        m_pEvents->add_flag("--json", m_fJson,
                            "One JSON object per line, with the insertion strings too");
    }

    bool Selected() const override { return m_pEvents->parsed(); }

    int Run() override
    {
        pal::EventLogQuery query;
        query.source = pal::Utf8ToUtf16(m_source);
        query.cLast = m_cLast;
        // CLI11 hands the value over as the user typed it.
        std::string level;
        for (char c : m_level)
            level.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
        if (level == "error")
            query.types = {EVENTLOG_ERROR_TYPE};
        else if (level == "warning")
            query.types = {EVENTLOG_WARNING_TYPE};
        else if (level == "information")
            // Event Viewer shows success events as information too.
            query.types = {EVENTLOG_INFORMATION_TYPE, EVENTLOG_SUCCESS};

        std::vector<pal::EventLogRecord> records;
        DWORD dwError = pal::ReadEventLog(query, &records);
        if (dwError != ERROR_SUCCESS) {
            char code[16];
            std::snprintf(code, sizeof(code), "0x%08X", dwError);
            std::cerr << "ERROR: The event log cannot be read (error " << code << ").\n";
            return 1;
        }
        for (const pal::EventLogRecord& record : records) {
            if (m_fJson)
                std::cout << events::FormatJson(record) << "\n";
            else
                std::cout << events::FormatText(record);
        }
        std::cout.flush();
        return std::cout ? 0 : 1;
    }

private:
    CLI::App* m_pEvents = nullptr;
    std::string m_source;
    size_t m_cLast = 0;
    std::string m_level;
    bool m_fJson = false;
};

} // namespace

std::unique_ptr<Command> AddEventsCommand(CLI::App& app)
{
    return std::make_unique<EventsCommand>(app);
}

} // namespace orvsim
