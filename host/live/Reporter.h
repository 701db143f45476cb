// The output of the live subcommands: a status line while they run, notes, one JSON line per interval,
// and the report at the end, as text or as JSON.

#ifndef TALRTP_HOST_LIVE_REPORTER_H
#define TALRTP_HOST_LIVE_REPORTER_H

#include <talrtp/kit/Time.h>

#include <nlohmann/json_fwd.hpp>

#include <cstdio>
#include <optional>
#include <string>

namespace talrtp::host {

using Json = nlohmann::ordered_json;

struct ReportOptions {
    bool isJson = false;
    bool isQuiet = false;
    std::optional<double> statsSeconds;
};

class CReporter {
public:
    // `isStdoutTaken`: the stream itself goes to standard output, so that everything here goes to stderr.
    CReporter(const ReportOptions& options, bool isStdoutTaken);
    ~CReporter() { clearStatus(); }
    CReporter(const CReporter&) = delete;
    CReporter& operator=(const CReporter&) = delete;

    const ReportOptions& options() const { return m_options; }

    // Tells whether status lines are shown: on a terminal, unless --quiet.
    bool showsStatus() const { return m_showsStatus; }

    // Replaces the status line. Nothing when none is shown.
    void status(const std::string& text);

    // One line on stderr, unless --quiet.
    void note(const std::string& text);

    // One line of JSON, for --stats.
    void interval(const Json& report);

    // The report at the end: the JSON with --json, else the text unless --quiet.
    void report(const Json& report, const std::string& text);

private:
    void clearStatus();

    ReportOptions m_options;
    std::FILE* m_out;
    bool m_showsStatus;
    bool m_isStatusShown = false;
};

// CPU time and memory of this process, as part of a report.
Json processReport();

// Seconds from `start` to `end`.
double secondsBetween(kit::TimePoint start, kit::TimePoint end);

}  // namespace talrtp::host

#endif  // TALRTP_HOST_LIVE_REPORTER_H
