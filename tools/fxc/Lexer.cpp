#include "Lexer.h"
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>

namespace fxc {
namespace {

const int kMaxIncludeDepth = 32;
const int kMaxExpressionNesting = 256;     // #if expressions are read recursively
const size_t kMaxTokens = size_t(1) << 18;  // macros that expand each other twice grow exponentially

bool isIdentStart(char c) { return std::isalpha(static_cast<unsigned char>(c)) || c == '_'; }
bool isIdentChar(char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; }
bool isDigit(char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; }

bool equalsNoCase(const std::string& a, const char* b) {
    size_t i = 0;
    for (; i < a.size() && b[i]; ++i)
        if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i])))
            return false;
    return i == a.size() && !b[i];
}

std::string directoryOf(const std::string& path) {
    size_t slash = path.find_last_of("/\\");
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

bool readWholeFile(const std::string& path, std::string& text) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::ostringstream buffer;
    buffer << in.rdbuf();
    text = buffer.str();
    return true;
}

// Scans one token (no directives, no comments) starting at text[i]; i moves past it.
Token scanSimpleToken(const std::string& text, size_t& i, const SourceLocation& where) {
    Token token;
    token.where = where;
    char c = text[i];
    size_t start = i;
    if (isIdentStart(c)) {
        while (i < text.size() && isIdentChar(text[i])) ++i;
        token.kind = TokenKind::Identifier;
    } else if (isDigit(c) || (c == '.' && i + 1 < text.size() && isDigit(text[i + 1]))) {
        if (c == '0' && i + 1 < text.size() && (text[i + 1] == 'x' || text[i + 1] == 'X')) {
            i += 2;
            while (i < text.size() && std::isxdigit(static_cast<unsigned char>(text[i]))) ++i;
        } else {
            while (i < text.size() && (isDigit(text[i]) || text[i] == '.')) ++i;
            if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
                ++i;
                if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
                while (i < text.size() && isDigit(text[i])) ++i;
            }
        }
        while (i < text.size() && std::strchr("fFhHlLuU", text[i]) && text[i]) ++i;
        token.kind = TokenKind::Number;
    } else if (c == '"') {
        ++i;
        std::string value;
        while (i < text.size() && text[i] != '"' && text[i] != '\n') {
            if (text[i] == '\\' && i + 1 < text.size()) {
                ++i;
                value += text[i] == 'n' ? '\n' : text[i] == 't' ? '\t' : text[i];
            } else {
                value += text[i];
            }
            ++i;
        }
        if (i >= text.size() || text[i] != '"') throw CompileError(where, "unterminated string literal");
        ++i;
        token.kind = TokenKind::String;
        token.text = value;
        return token;
    } else {
        static const char* const pairs[] = {"&&", "||", "==", "!=", "<=", ">="};
        token.kind = TokenKind::Punct;
        for (const char* pair : pairs)
            if (text.compare(i, 2, pair) == 0) {
                i += 2;
                token.text = pair;
                return token;
            }
        ++i;
    }
    token.text = text.substr(start, i - start);
    return token;
}

struct Condition {
    bool parentActive;
    bool active;
    bool taken;
    bool sawElse;
};

class Preprocessor {
public:
    explicit Preprocessor(const PreprocessorOptions& options) : m_options(options), m_macros(options.macros) {}

    void processFile(const std::string& path, const SourceLocation* includedFrom, int depth) {
        std::string text;
        if (!readWholeFile(path, text)) {
            SourceLocation where = includedFrom ? *includedFrom : SourceLocation{path, 0};
            throw CompileError(where, "cannot open file " + path);
        }
        processText(text, path, depth);
    }

    void processText(const std::string& text, const std::string& name, int depth) {
        if (depth > kMaxIncludeDepth) throw CompileError({name, 1}, "includes nested too deeply");
        SourceLocation where{name, 1};
        size_t conditionsAtStart = m_conditions.size();
        bool atLineStart = true;
        size_t i = 0;
        while (i < text.size()) {
            char c = text[i];
            if (c == '\n') {
                ++where.line;
                atLineStart = true;
                ++i;
            } else if (c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v') {
                ++i;
            } else if (text.compare(i, 2, "//") == 0) {
                while (i < text.size() && text[i] != '\n') ++i;
            } else if (text.compare(i, 2, "/*") == 0) {
                skipBlockComment(text, i, where);
            } else if (c == '#' && atLineStart) {
                std::string line = readDirectiveLine(text, i, where);
                handleDirective(line, where, name, depth);
            } else if (!active()) {
                while (i < text.size() && text[i] != '\n') ++i;
            } else {
                atLineStart = false;
                Token token = scanSimpleToken(text, i, where);
                if (token.kind == TokenKind::Identifier && equalsNoCase(token.text, "asm")) {
                    m_tokens.push_back(token);
                    m_tokens.push_back(readAsmBody(text, i, where));
                } else {
                    emit(token, 0);
                }
            }
        }
        if (m_conditions.size() != conditionsAtStart) throw CompileError(where, "#if without #endif");
    }

    std::vector<Token> takeTokens() {
        Token end;
        end.kind = TokenKind::End;
        end.where = m_tokens.empty() ? SourceLocation{} : m_tokens.back().where;
        m_tokens.push_back(end);
        return std::move(m_tokens);
    }

private:
    bool active() const { return m_conditions.empty() || m_conditions.back().active; }

    static void skipBlockComment(const std::string& text, size_t& i, SourceLocation& where) {
        SourceLocation start = where;
        i += 2;
        while (i < text.size() && text.compare(i, 2, "*/") != 0) {
            if (text[i] == '\n') ++where.line;
            ++i;
        }
        if (i >= text.size()) throw CompileError(start, "unterminated comment");
        i += 2;
    }

    // The directive's text with continuation lines joined; i stops at the newline.
    static std::string readDirectiveLine(const std::string& text, size_t& i, SourceLocation& where) {
        std::string line;
        ++i;
        while (i < text.size() && text[i] != '\n') {
            if (text[i] == '\\' && i + 1 < text.size() && (text[i + 1] == '\n' || text[i + 1] == '\r')) {
                while (i < text.size() && text[i] != '\n') ++i;
                ++i;
                ++where.line;
                continue;
            }
            if (text.compare(i, 2, "//") == 0) {
                while (i < text.size() && text[i] != '\n') ++i;
                break;
            }
            line += text[i++];
        }
        return line;
    }

    static Token readAsmBody(const std::string& text, size_t& i, SourceLocation& where) {
        while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) {
            if (text[i] == '\n') ++where.line;
            ++i;
        }
        if (i >= text.size() || text[i] != '{') throw CompileError(where, "expected '{' after asm");
        Token body;
        body.kind = TokenKind::AsmBody;
        body.where = where;
        ++i;
        while (i < text.size() && text[i] != '}') {
            if (text[i] == '\n') ++where.line;
            body.text += text[i++];
        }
        if (i >= text.size()) throw CompileError(body.where, "asm block without closing '}'");
        ++i;
        return body;
    }

    static std::vector<Token> lexLine(const std::string& text, const SourceLocation& where) {
        std::vector<Token> tokens;
        size_t i = 0;
        while (i < text.size()) {
            if (std::isspace(static_cast<unsigned char>(text[i]))) {
                ++i;
            } else if (text.compare(i, 2, "/*") == 0) {
                SourceLocation ignored = where;
                skipBlockComment(text, i, ignored);
            } else {
                tokens.push_back(scanSimpleToken(text, i, where));
            }
        }
        return tokens;
    }

    void emit(const Token& token, int depth) {
        if (token.kind != TokenKind::Identifier || !m_macros.count(token.text) || m_expanding.count(token.text)) {
            if (m_tokens.size() >= kMaxTokens) throw CompileError(token.where, "effect source expands too far");
            m_tokens.push_back(token);
            return;
        }
        if (depth > kMaxIncludeDepth) throw CompileError(token.where, "macro expansion too deep");
        m_expanding.insert(token.text);
        for (Token expanded : lexLine(m_macros[token.text], token.where)) {
            expanded.where = token.where;
            emit(expanded, depth + 1);
        }
        m_expanding.erase(token.text);
    }

    void handleDirective(const std::string& line, const SourceLocation& where, const std::string& file, int depth) {
        size_t i = 0;
        while (i < line.size() && std::isspace(static_cast<unsigned char>(line[i]))) ++i;
        size_t nameStart = i;
        while (i < line.size() && isIdentChar(line[i])) ++i;
        std::string directive = line.substr(nameStart, i - nameStart);
        std::string rest = line.substr(i);

        if (directive == "if") return pushCondition(active() && evaluateCondition(rest, where));
        if (directive == "ifdef") return pushCondition(active() && m_macros.count(singleName(rest, where)));
        if (directive == "ifndef") return pushCondition(active() && !m_macros.count(singleName(rest, where)));
        if (directive == "elif") return elseBranch(where, "#elif", rest);
        if (directive == "else") return elseBranch(where, "#else", std::string());
        if (directive == "endif") {
            if (m_conditions.empty()) throw CompileError(where, "#endif without #if");
            m_conditions.pop_back();
            return;
        }
        if (!active()) return;
        if (directive == "define") return define(rest, where);
        if (directive == "undef") {
            m_macros.erase(singleName(rest, where));
            return;
        }
        if (directive == "include") return include(rest, where, file, depth);
        if (directive == "pragma") return;
        if (directive == "error") throw CompileError(where, "#error" + rest);
        throw CompileError(where, "unknown directive #" + directive);
    }

    void pushCondition(bool value) {
        bool parent = active();
        m_conditions.push_back({parent, parent && value, parent && value, false});
    }

    void elseBranch(const SourceLocation& where, const char* name, const std::string& expression) {
        if (m_conditions.empty() || m_conditions.back().sawElse)
            throw CompileError(where, std::string(name) + " without #if");
        Condition& condition = m_conditions.back();
        bool take = false;
        if (!condition.taken && condition.parentActive)
            take = expression.empty() ? true : evaluateCondition(expression, where);
        condition.active = take;
        condition.taken = condition.taken || take;
        condition.sawElse = expression.empty();
    }

    static std::string singleName(const std::string& rest, const SourceLocation& where) {
        std::vector<Token> tokens = lexLine(rest, where);
        if (tokens.size() != 1 || tokens[0].kind != TokenKind::Identifier)
            throw CompileError(where, "expected one macro name");
        return tokens[0].text;
    }

    void define(const std::string& rest, const SourceLocation& where) {
        size_t i = 0;
        while (i < rest.size() && std::isspace(static_cast<unsigned char>(rest[i]))) ++i;
        size_t start = i;
        while (i < rest.size() && isIdentChar(rest[i])) ++i;
        if (start == i || !isIdentStart(rest[start])) throw CompileError(where, "#define without a macro name");
        if (i < rest.size() && rest[i] == '(')
            throw CompileError(where, "function-like macros are not supported");
        std::string value = rest.substr(i);
        size_t first = value.find_first_not_of(" \t\r");
        size_t last = value.find_last_not_of(" \t\r");
        m_macros[rest.substr(start, i - start)] =
            first == std::string::npos ? std::string() : value.substr(first, last - first + 1);
    }

    void include(const std::string& rest, const SourceLocation& where, const std::string& file, int depth) {
        std::vector<Token> tokens = lexLine(rest, where);
        std::string name;
        if (tokens.size() == 1 && tokens[0].kind == TokenKind::String) {
            name = tokens[0].text;
        } else {
            size_t open = rest.find('<'), close = rest.find('>');
            if (open == std::string::npos || close == std::string::npos || close < open)
                throw CompileError(where, "malformed #include");
            name = rest.substr(open + 1, close - open - 1);
        }
        std::vector<std::string> candidates{directoryOf(file) + name};
        for (const std::string& dir : m_options.includeDirs) candidates.push_back(dir + "/" + name);
        for (const std::string& candidate : candidates) {
            std::ifstream probe(candidate, std::ios::binary);
            if (probe) return processFile(candidate, &where, depth + 1);
        }
        throw CompileError(where, "cannot find include file " + name);
    }

    // #if expressions: integers, defined(), macros, ! - * / % + - < > <= >= == != && ||.
    bool evaluateCondition(const std::string& text, const SourceLocation& where) {
        std::vector<Token> raw = lexLine(text, where);
        std::vector<Token> tokens;
        for (size_t k = 0; k < raw.size(); ++k) {
            if (raw[k].kind == TokenKind::Identifier && raw[k].text == "defined") {
                bool paren = k + 1 < raw.size() && raw[k + 1].text == "(";
                size_t nameIndex = k + (paren ? 2 : 1);
                if (nameIndex >= raw.size() || raw[nameIndex].kind != TokenKind::Identifier)
                    throw CompileError(where, "defined without a macro name");
                Token value = raw[k];
                value.kind = TokenKind::Number;
                value.text = m_macros.count(raw[nameIndex].text) ? "1" : "0";
                tokens.push_back(value);
                k = nameIndex + (paren ? 1 : 0);
            } else {
                size_t before = m_tokens.size();
                emit(raw[k], 0);
                tokens.insert(tokens.end(), m_tokens.begin() + before, m_tokens.end());
                m_tokens.resize(before);
            }
        }
        size_t position = 0;
        long value = parseBinary(tokens, position, 0, where, 0);
        if (position != tokens.size()) throw CompileError(where, "malformed #if expression");
        return value != 0;
    }

    static int precedence(const std::string& op) {
        static const std::map<std::string, int> table = {
            {"||", 1}, {"&&", 2}, {"==", 3}, {"!=", 3}, {"<", 4}, {">", 4}, {"<=", 4}, {">=", 4},
            {"+", 5},  {"-", 5},  {"*", 6},  {"/", 6},  {"%", 6}};
        auto found = table.find(op);
        return found == table.end() ? -1 : found->second;
    }

    // Arithmetic wraps around rather than overflowing (the smallest value divided by -1 included).
    static long apply(const std::string& op, long a, long b, const SourceLocation& where) {
        if ((op == "/" || op == "%") && b == 0) throw CompileError(where, "division by zero in #if");
        if ((op == "/" || op == "%") && b == -1) return op == "/" ? wrap(0ul - static_cast<unsigned long>(a)) : 0;
        if (op == "||") return a || b;
        if (op == "&&") return a && b;
        if (op == "==") return a == b;
        if (op == "!=") return a != b;
        if (op == "<") return a < b;
        if (op == ">") return a > b;
        if (op == "<=") return a <= b;
        if (op == ">=") return a >= b;
        unsigned long x = static_cast<unsigned long>(a), y = static_cast<unsigned long>(b);
        if (op == "+") return wrap(x + y);
        if (op == "-") return wrap(x - y);
        if (op == "*") return wrap(x * y);
        if (op == "/") return a / b;
        return a % b;
    }

    static long wrap(unsigned long value) {
        long result;
        std::memcpy(&result, &value, sizeof(result));
        return result;
    }

    static long parseBinary(const std::vector<Token>& tokens, size_t& position, int minimum,
                            const SourceLocation& where, int depth) {
        long left = parseUnary(tokens, position, where, depth);
        while (position < tokens.size()) {
            int level = precedence(tokens[position].text);
            if (level < 0 || level <= minimum - 1 || level < minimum) break;
            std::string op = tokens[position++].text;
            long right = parseBinary(tokens, position, level + 1, where, depth);
            left = apply(op, left, right, where);
        }
        return left;
    }

    static long parseUnary(const std::vector<Token>& tokens, size_t& position, const SourceLocation& where,
                           int depth) {
        if (position >= tokens.size()) throw CompileError(where, "malformed #if expression");
        if (depth > kMaxExpressionNesting) throw CompileError(where, "#if expression nested too deeply");
        const Token& token = tokens[position++];
        if (token.text == "!") return !parseUnary(tokens, position, where, depth + 1);
        if (token.text == "-") return wrap(0ul - static_cast<unsigned long>(parseUnary(tokens, position, where, depth + 1)));
        if (token.text == "(") {
            long value = parseBinary(tokens, position, 0, where, depth + 1);
            if (position >= tokens.size() || tokens[position].text != ")")
                throw CompileError(where, "missing ')' in #if expression");
            ++position;
            return value;
        }
        if (token.kind == TokenKind::Number) return std::strtol(token.text.c_str(), nullptr, 0);
        if (token.kind == TokenKind::Identifier) return 0;
        throw CompileError(where, "malformed #if expression");
    }

    const PreprocessorOptions& m_options;
    std::map<std::string, std::string> m_macros;
    std::set<std::string> m_expanding;
    std::vector<Condition> m_conditions;
    std::vector<Token> m_tokens;
};

}  // namespace

std::vector<Token> tokenizeFile(const std::string& path, const PreprocessorOptions& options) {
    Preprocessor preprocessor(options);
    preprocessor.processFile(path, nullptr, 0);
    return preprocessor.takeTokens();
}

std::vector<Token> tokenizeText(const std::string& text, const std::string& name,
                                const PreprocessorOptions& options) {
    Preprocessor preprocessor(options);
    preprocessor.processText(text, name, 0);
    return preprocessor.takeTokens();
}

}  // namespace fxc
