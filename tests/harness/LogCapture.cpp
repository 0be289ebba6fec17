#include "LogCapture.h"

#include <algorithm>

namespace vexiltest {

LogCapture::LogCapture(int globalThreshold) : m_savedThreshold(zeb::LogFactory::getPriority()) {
    zeb::LogFactory::setPriority(globalThreshold);
    zeb::LogFactory::addSink(this);
}

LogCapture::~LogCapture() {
    zeb::LogFactory::removeSink(this);
    zeb::LogFactory::setPriority(m_savedThreshold);
}

void LogCapture::write(const zeb::Logger& logger, zeb::LOGGER_PRIORITY priority, const zeb::String& message) {
    m_entries.push_back({logger.name().getUTF8String().c_str(), static_cast<int>(priority), message.getUTF8String().c_str()});
}

bool LogCapture::contains(const std::string& logger, int priority, const std::string& text) const {
    return std::any_of(m_entries.begin(), m_entries.end(),
                       [&](const LogEntry& e) { return e.logger == logger && e.priority == priority && e.text == text; });
}

size_t LogCapture::count(const std::string& logger, const std::string& fragment, int priority) const {
    return std::count_if(m_entries.begin(), m_entries.end(), [&](const LogEntry& e) {
        return e.logger == logger && e.text.find(fragment) != std::string::npos && (priority < 0 || e.priority == priority);
    });
}

std::string LogCapture::dump() const {
    std::string out;
    for (const LogEntry& e : m_entries) out += "[" + e.logger + "] P" + std::to_string(e.priority) + " " + e.text + "\n";
    return out;
}

}  // namespace vexiltest
