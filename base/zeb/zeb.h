#pragma once
// The base library: text, containers, holders, diagnostics.
#include <zeb/Array.h>
#include <zeb/ComPtr.h>
#include <zeb/Exception.h>
#include <zeb/HashTable.h>
#include <zeb/Logger.h>
#include <zeb/Resource.h>
#include <zeb/Serializable.h>
#include <zeb/String.h>
#include <zeb/Value.h>
