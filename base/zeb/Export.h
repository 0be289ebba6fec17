#pragma once
// Import/export decoration of the base library (Zebcore.dll).
#if defined(ZEB_BUILDING_CORE)
#define ZEB_API __declspec(dllexport)
#else
#define ZEB_API __declspec(dllimport)
#endif
