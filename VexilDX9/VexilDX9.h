#pragma once
// VexilDX9: everything an application needs, in one include.
#include <zeb/zeb.h>

#include <VexilDX9/Export.h>
#include <VexilDX9/LogD3D.h>
#include <VexilDX9/Effect.h>
#include <VexilDX9/EffectValue.h>
#include <VexilDX9/Technique.h>
#include <VexilDX9/CComPtr.h>
#include <VexilDX9/DeviceParameter.h>
#include <VexilDX9/RenderDeviceDX9.h>
#include <VexilDX9/RenderDeviceManagerDX9.h>
#include <VexilDX9/DeviceInfo.h>
#include <VexilDX9/Adapter.h>
#include <VexilDX9/Query.h>
#include <VexilDX9/SceneLoaderX.h>
#include <VexilDX9/FrameNodeIndexer.h>
#include <VexilDX9/MeshContainerTuple.h>
#include <VexilDX9/FrameTuple.h>
#include <VexilDX9/TextureTuple.h>
#include <VexilDX9/Viewer.h>
#include <VexilDX9/SkinnedMesh.h>
#include <VexilDX9/MeshManagerd3dx9.h>
#include <VexilDX9/VirtualRealityDX9.h>
#include <VexilDX9/BlinnPhongShading.h>
#include <VexilDX9/LightingEffect.h>
#include <VexilDX9/ShadowMap.h>
