#pragma once
#include <VexilDX9/Export.h>
#include <zeb/Logger.h>

namespace VexilDX9 {

// A source file's logger getter: its logger when priority p is enabled there, otherwise null.
typedef zeb::Logger* (*LoggerGetter)(zeb::LoggerPriority::LOGGER_PRIORITY p);

// Logs "<text> <result code name>" at failure priority on the getter's logger (and echoes it to
// zeb::cout when asked). Returns hr unchanged, so callers can return it as their own result.
VEXILDX9_API long logD3DFunction(LoggerGetter getter, const zeb::String& text, long hr, bool echo);

}  // namespace VexilDX9
