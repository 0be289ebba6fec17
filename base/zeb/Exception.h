#pragma once
#include <zeb/String.h>
#include <exception>

namespace zeb {

// Root of the base library's exceptions; all are thrown by value.
class ZEB_API Exception : public std::exception {
public:
    explicit Exception(const String& message);
    Exception(const Exception& other);
    Exception& operator=(const Exception& other);
    ~Exception() override;

    const String& message() const { return m_message; }
    const char* what() const noexcept override { return m_utf8; }

private:
    String m_message;
    CString m_utf8;
};

// A broken precondition: source file, line and the text of the failed check.
class ZEB_API AssertionFailure : public Exception {
public:
    AssertionFailure(const char* file, unsigned long long line, const char* expression);
    const char* file() const { return m_file; }
    unsigned long long line() const { return m_line; }
    const char* expression() const { return m_expression; }

private:
    const char* m_file;
    unsigned long long m_line;
    const char* m_expression;
};

// A position outside [lower, upper].
class ZEB_API IndexOutOfBounds : public Exception {
public:
    IndexOutOfBounds(int lower, int upper, int index);
    int lower() const { return m_lower; }
    int upper() const { return m_upper; }
    int index() const { return m_index; }

private:
    int m_lower;
    int m_upper;
    int m_index;
};

// A key that a table does not hold.
class ZEB_API HashKeyMissing : public Exception {
public:
    explicit HashKeyMissing(const String& key);
    explicit HashKeyMissing(unsigned int key);
    const String& key() const { return m_key; }

private:
    String m_key;
};

// An allocation that failed or could not be expressed.
class ZEB_API NullPointer : public Exception {
public:
    explicit NullPointer(const String& text);
};

class ZEB_API SerializationFailed : public Exception {
public:
    explicit SerializationFailed(const String& text);
};

}  // namespace zeb

// Throws zeb::AssertionFailure(file, line, "<expression text>") when the check does not hold.
// The library names its files "VexilDX9/<base name>" and gives each check a stable line tag.
#define ZEB_ASSERT(file, line, expression)                                               \
    do {                                                                                 \
        if (!(expression)) throw ::zeb::AssertionFailure((file), (line), #expression);   \
    } while (0)
