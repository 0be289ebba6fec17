#include <zeb/Logger.h>

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <vector>

namespace zeb {

namespace {

const int kDefaultGlobalThreshold = LoggerPriority::LOGGER_PRIORITY_INFO;

struct Registry {
    std::mutex lock;
    std::vector<Logger*> loggers;
    std::vector<LogSink*> sinks;
    int threshold = kDefaultGlobalThreshold;
    bool defaultSink = true;
};

Registry& registry() {
    // Never destroyed: loggers are used from static destructors of other modules.
    static Registry* instance = new Registry;
    return *instance;
}

String decimal(long long value) {
    char text[32];
    std::snprintf(text, sizeof text, "%lld", value);
    return String(text);
}

void writeDefault(const Logger& logger, LOGGER_PRIORITY priority, const String& message) {
    SYSTEMTIME now;
    GetLocalTime(&now);
    char head[64];
    std::snprintf(head, sizeof head, "%02u:%02u:%02u.%03u P%d [", now.wHour, now.wMinute, now.wSecond,
                  now.wMilliseconds, static_cast<int>(priority));
    String line(head);
    line.append(logger.name()).append("] ").append(message).append("\n");
    std::fputs(line.getUTF8String(), stderr);
    OutputDebugStringW(line.getWideBuffer());
}

}  // namespace

// ---- LoggerStream ----

LoggerStream& LoggerStream::operator+(const char* text) { append(text); return *this; }
LoggerStream& LoggerStream::operator+(const String& text) { append(text); return *this; }
LoggerStream& LoggerStream::operator+(const wchar_t* text) { append(String(text)); return *this; }
LoggerStream& LoggerStream::operator+(int value) { append(decimal(value)); return *this; }
LoggerStream& LoggerStream::operator+(unsigned int value) { append(decimal(value)); return *this; }
LoggerStream& LoggerStream::operator+(long value) { append(decimal(value)); return *this; }
LoggerStream& LoggerStream::operator+(unsigned long value) { append(decimal(static_cast<long long>(value))); return *this; }
LoggerStream& LoggerStream::operator+(long long value) { append(decimal(value)); return *this; }
LoggerStream& LoggerStream::operator+(unsigned long long value) {
    char text[32];
    std::snprintf(text, sizeof text, "%llu", value);
    append(text);
    return *this;
}
LoggerStream& LoggerStream::operator+(float value) { return *this + static_cast<double>(value); }
LoggerStream& LoggerStream::operator+(double value) {
    char text[48];
    std::snprintf(text, sizeof text, "%g", value);
    append(text);
    return *this;
}

LogSink::~LogSink() = default;

// ---- Logger and factory ----

void Logger::log(LOGGER_PRIORITY priority, const LoggerStream& message) const {
    Registry& r = registry();
    std::vector<LogSink*> sinks;
    bool useDefault;
    {
        std::lock_guard<std::mutex> guard(r.lock);
        sinks = r.sinks;
        useDefault = r.defaultSink;
    }
    if (useDefault) writeDefault(*this, priority, message);
    for (LogSink* sink : sinks) sink->write(*this, priority, message);
}

void LogFactory::createLogger(const char* name, Logger*& logger) {
    Registry& r = registry();
    std::lock_guard<std::mutex> guard(r.lock);
    for (Logger* existing : r.loggers) {
        if (existing->name() == name) {
            logger = existing;
            return;
        }
    }
    logger = new Logger(String(name));
    r.loggers.push_back(logger);
}

Logger* LogFactory::getLogger(const char* name) {
    Logger* logger = nullptr;
    createLogger(name, logger);
    return logger;
}

int LogFactory::getPriority() { return registry().threshold; }
void LogFactory::setPriority(int threshold) { registry().threshold = threshold; }

void LogFactory::addSink(LogSink* sink) {
    Registry& r = registry();
    std::lock_guard<std::mutex> guard(r.lock);
    r.sinks.push_back(sink);
}

void LogFactory::removeSink(LogSink* sink) {
    Registry& r = registry();
    std::lock_guard<std::mutex> guard(r.lock);
    r.sinks.erase(std::remove(r.sinks.begin(), r.sinks.end(), sink), r.sinks.end());
}

void LogFactory::setDefaultSinkEnabled(bool enabled) { registry().defaultSink = enabled; }
bool LogFactory::isDefaultSinkEnabled() { return registry().defaultSink; }

Logger* enabledLogger(Logger*& fileLogger, const char* name, LOGGER_PRIORITY p) {
    if (LogFactory::getPriority() > p) return nullptr;
    if (!fileLogger) LogFactory::createLogger(name, fileLogger);
    return fileLogger->getPriority() < p ? fileLogger : nullptr;
}

// ---- traces ----

TraceLogger::TraceLogger(Logger* logger, const char* function, const char* file, int line)
    : m_logger(logger), m_function(function) {
    if (!m_logger) return;
    LoggerStream entry;
    entry + "-> " + function + " (" + file + ":" + line + ")";
    m_logger->log(LoggerPriority::LOGGER_PRIORITY_DETAIL, entry);
}

TraceLogger::~TraceLogger() {
    if (!m_logger) return;
    LoggerStream exit;
    exit + "<- " + m_function;
    m_logger->log(LoggerPriority::LOGGER_PRIORITY_DETAIL, exit);
}

// ---- console ----

ConsoleStream cout;

ConsoleStream& ConsoleStream::operator<<(const String& text) {
    emit(text);
    return *this;
}

ConsoleStream& ConsoleStream::operator<<(const char* text) {
    emit(String(text));
    return *this;
}

ConsoleStream& ConsoleStream::operator<<(int) {
    emit(String("\n"));
    return *this;
}

void ConsoleStream::setWriter(Writer writer, void* context) {
    m_writer = writer;
    m_context = context;
}

void ConsoleStream::emit(const String& text) {
    if (m_writer) {
        m_writer(text, m_context);
        return;
    }
    std::fputs(text.getUTF8String(), stdout);
    std::fflush(stdout);
}

}  // namespace zeb
