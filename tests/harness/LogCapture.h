#pragma once
#include <zeb/Logger.h>

#include <string>
#include <vector>

namespace vexiltest {

struct LogEntry {
    std::string logger;
    int priority;
    std::string text;  // UTF-8, line tag included
};

// Records every line that reaches the sinks while it lives; sets the global threshold for its
// lifetime (0 by default, so everything a logger lets through is seen).
class LogCapture : public zeb::LogSink {
public:
    explicit LogCapture(int globalThreshold = 0);
    ~LogCapture() override;
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    void write(const zeb::Logger& logger, zeb::LOGGER_PRIORITY priority, const zeb::String& message) override;

    const std::vector<LogEntry>& entries() const { return m_entries; }
    bool contains(const std::string& logger, int priority, const std::string& text) const;
    // Lines of that logger containing the fragment (at that priority, unless it is negative).
    size_t count(const std::string& logger, const std::string& fragment, int priority = -1) const;
    void clear() { m_entries.clear(); }
    std::string dump() const;

private:
    int m_savedThreshold;
    std::vector<LogEntry> m_entries;
};

}  // namespace vexiltest
