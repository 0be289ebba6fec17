#pragma once
#include <cstddef>
#include <string>

// True for "xof 03xxtzip/bzip 0032/0064" headers: X files whose body is MSZIP-compressed.
bool isCompressedXFile(const char* data, size_t size);

// Turns a compressed X file into its plain text or binary form. Every chunk's sizes are checked
// against the file and against what it inflates to; false for anything that does not add up.
bool decompressXFile(const char* data, size_t size, std::string& plain);
