#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// A structural reader for the text and binary encodings of X files. It keeps the numbers only of the objects
// it is asked about (the animation templates); everything else is walked over, so a mesh with a
// hundred thousand vertices costs no memory.
struct XObject {
    std::string type;
    std::string name;
    std::vector<double> numbers;          // data members in file order, separators dropped
    std::vector<std::string> references;  // "{ name }" children
    std::vector<XObject> children;
    size_t begin = 0;  // byte range of the whole object in the file, type name to closing brace
    size_t end = 0;
    size_t dataBegin = 0;  // byte range of its data members: after the opening brace, up to the
    size_t dataEnd = 0;    // first child object, reference or the closing brace
};

// A mesh's MeshMaterialList (material count, index count, face indices) with the face count of
// its mesh.
struct XMaterialList {
    size_t meshFaces = 0;
    XObject list;
};

// A "{ name }" reference inside a frame, with its byte range in the file.
struct XFrameReference {
    std::string name;
    size_t begin = 0;
    size_t end = 0;
};

struct XFileOutline {
    std::vector<std::string> declaredTemplates;
    std::vector<XObject> topLevel;
    std::vector<XFrameReference> frameReferences;
    std::vector<XMaterialList> materialLists;  // of the meshes whose face count could be read
};

// Objects nested deeper than this are refused: the system loader walks the nesting recursively.
const int kMaxXNesting = 4096;
// Longer names and strings are refused: the system loader copies them into fixed buffers.
const size_t kMaxXNameLength = 99;

// True for "xof 03xxtxt 0032/0064" headers.
bool isTextXFile(const char* data, size_t size);
// True for "xof 03xxbin 0032/0064" headers (uncompressed binary).
bool isBinaryXFile(const char* data, size_t size);

// Reads the structure of a text or binary X file. Returns false when the braces do not balance, the file is
// cut short, nests deeper than kMaxXNesting, holds a name or string longer than kMaxXNameLength or, in the
// binary encoding, a token that does not exist; `file` then holds what came before the fault.
bool readXStructure(const char* data, size_t size, bool (*keepNumbers)(const std::string& type), XFileOutline& file);

// Append one word or double word of the binary encoding (little-endian, as the format is).
void appendXWord(std::string& out, uint16_t value);
void appendXDword(std::string& out, uint32_t value);
