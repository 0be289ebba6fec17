#pragma once
#include <zeb/String.h>

namespace zeb {

struct LoggerPriority {
    enum LOGGER_PRIORITY {
        LOGGER_PRIORITY_ALL = 0,
        LOGGER_PRIORITY_DETAIL = 1,   // function traces and debug detail
        LOGGER_PRIORITY_INFO = 2,     // progress and reports
        LOGGER_PRIORITY_FAILURE = 3,  // failed calls, loads and lookups
        LOGGER_PRIORITY_SEVERE = 4,   // broken invariants, missing data
        LOGGER_PRIORITY_NONE = 5
    };
};
typedef LoggerPriority::LOGGER_PRIORITY LOGGER_PRIORITY;

// A message being built: the text of a String with numbers appended as decimal text.
class ZEB_API LoggerStream : public String {
public:
    LoggerStream() = default;
    LoggerStream& operator+(const char* text);
    LoggerStream& operator+(const String& text);
    LoggerStream& operator+(const wchar_t* text);
    LoggerStream& operator+(int value);
    LoggerStream& operator+(unsigned int value);
    LoggerStream& operator+(long value);
    LoggerStream& operator+(unsigned long value);
    LoggerStream& operator+(unsigned long long value);
    LoggerStream& operator+(long long value);
    LoggerStream& operator+(float value);
    LoggerStream& operator+(double value);
};

class Logger;

// Receives every line that passes a logger's filters.
class ZEB_API LogSink {
public:
    virtual ~LogSink();
    virtual void write(const Logger& logger, LOGGER_PRIORITY priority, const String& message) = 0;
};

// A named channel with its own threshold: it shows messages whose priority is above it.
class ZEB_API Logger {
public:
    const String& name() const { return m_name; }
    int getPriority() const { return m_priority; }
    void setPriority(int threshold) { m_priority = threshold; }
    void log(LOGGER_PRIORITY priority, const LoggerStream& message) const;

private:
    friend class LogFactory;
    explicit Logger(const String& name) : m_name(name) {}

    String m_name;
    int m_priority = 0;
};

// Process-wide registry of loggers, the global threshold and the sinks.
class ZEB_API LogFactory {
public:
    // Finds or creates the logger of that name; the same name always gives the same logger.
    static void createLogger(const char* name, Logger*& logger);
    static Logger* getLogger(const char* name);

    // Messages below the global threshold are dropped before any logger is asked.
    static int getPriority();
    static void setPriority(int threshold);

    static void addSink(LogSink* sink);
    static void removeSink(LogSink* sink);
    // The default sink writes each line with time, priority and logger name to standard error
    // and to the debugger output.
    static void setDefaultSinkEnabled(bool enabled);
    static bool isDefaultSinkEnabled();
};

// The enabling rule: null when the global threshold is above p (the logger is then not created),
// otherwise the file's logger if its own threshold is below p.
ZEB_API Logger* enabledLogger(Logger*& fileLogger, const char* name, LOGGER_PRIORITY p);

// Logs entry at construction and exit at destruction; does nothing with a null logger.
class ZEB_API TraceLogger {
public:
    TraceLogger(Logger* logger, const char* function, const char* file, int line);
    ~TraceLogger();
    TraceLogger(const TraceLogger&) = delete;
    TraceLogger& operator=(const TraceLogger&) = delete;

private:
    Logger* m_logger;
    const char* m_function;
};

// The console stream: text to standard output unless a writer is installed.
class ZEB_API ConsoleStream {
public:
    typedef void (*Writer)(const String& text, void* context);
    ConsoleStream& operator<<(const String& text);
    ConsoleStream& operator<<(const char* text);
    // Called with 0, ends the line.
    ConsoleStream& operator<<(int endLine);
    void setWriter(Writer writer, void* context);

private:
    void emit(const String& text);
    Writer m_writer = nullptr;
    void* m_context = nullptr;
};
ZEB_API extern ConsoleStream cout;

}  // namespace zeb

// A source file's logger: a static pointer created on first use and its getter.
#define ZEB_FILE_LOGGER(getterName, loggerName)                                      \
    static ::zeb::Logger* getterName##Pointer = nullptr;                             \
    static ::zeb::Logger* getterName(::zeb::LoggerPriority::LOGGER_PRIORITY p) {     \
        return ::zeb::enabledLogger(getterName##Pointer, (loggerName), p);           \
    }

// Logs "<tag> " followed by the pieces (joined with +) at the given priority; nothing is built
// when the message is filtered out.
#define ZEB_LOG(getter, priority, tag, ...)                                          \
    do {                                                                             \
        const ::zeb::LOGGER_PRIORITY zebPriority_ = (::zeb::LOGGER_PRIORITY)(priority); \
        if (::zeb::Logger* zebLogger_ = getter(zebPriority_)) {                      \
            ::zeb::LoggerStream zebStream_;                                          \
            zebStream_ + (unsigned)(tag) + " ";                                      \
            zebStream_ + __VA_ARGS__;                                                \
            zebLogger_->log(zebPriority_, zebStream_);                               \
        }                                                                            \
    } while (0)

#define ZEB_TRACE(getter, function)                                                  \
    ::zeb::TraceLogger zebTrace_(getter(::zeb::LoggerPriority::LOGGER_PRIORITY_DETAIL), \
                                 (function), __FILE__, __LINE__)

// A trace scope with a fixed source name and line tag.
#define ZEB_TRACE_AT(getter, function, file, line)                                   \
    ::zeb::TraceLogger zebTrace_(getter(::zeb::LoggerPriority::LOGGER_PRIORITY_DETAIL), \
                                 (function), (file), (line))
