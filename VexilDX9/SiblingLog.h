#pragma once
// The logging helper of the sibling video library, used by the adapter, query, effect and scene
// sources. It behaves exactly as VexilDX9::logD3DFunction.
#include <VexilDX9/LogD3D.h>

long logD3DFunction(VexilDX9::LoggerGetter getter, const zeb::String& text, long hr, bool echo);
