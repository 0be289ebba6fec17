#pragma once
// Import/export decoration of VexilDX9.dll.
#if defined(VEXILDX9_BUILDING)
#define VEXILDX9_API __declspec(dllexport)
#else
#define VEXILDX9_API __declspec(dllimport)
#endif
