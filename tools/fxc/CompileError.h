#pragma once
#include <stdexcept>
#include <string>

namespace fxc {

// Where a token came from; every diagnostic names a file and a line.
struct SourceLocation {
    std::string file;
    int line = 0;
};

class CompileError : public std::runtime_error {
public:
    CompileError(const SourceLocation& where, const std::string& message)
        : std::runtime_error(message), m_where(where) {}
    const SourceLocation& where() const { return m_where; }
    std::string describe() const { return m_where.file + ":" + std::to_string(m_where.line) + ": " + what(); }

private:
    SourceLocation m_where;
};

}  // namespace fxc
