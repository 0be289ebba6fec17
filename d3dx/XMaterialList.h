#pragma once
#include "XStructure.h"

#include <string>

// Writes a mesh's material list out with one index per face. Microsoft's loader gives the faces
// past a short list the last index listed (one index: every face), and no face the indices past
// the last; the system loader refuses any count but the face count. False when nothing needs
// writing (the list fits, holds no material, or its mesh has no face); else `data` holds the data
// members, in the file's encoding, to put in place of the list's own.
bool faceByFaceMaterialList(const XMaterialList& entry, bool binary, std::string& data);
