#include "SkinInfoWrap.h"

// Placeholder until the completed skin info lands: the system object as it is.
ID3DXSkinInfo* vexilWrapSkinInfo(ID3DXSkinInfo* system)
{
    if (system)
        system->AddRef();
    return system;
}
