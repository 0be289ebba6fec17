#include <VexilDX9/Query.h>

#include <VexilDX9/SiblingLog.h>
#include <zeb/Exception.h>
#include <zeb/Logger.h>

ZEB_FILE_LOGGER(fileLogger, "VexilDX9")

QueryCommon::QueryCommon() = default;

QueryCommon::QueryCommon(const COMPtr<IDirect3DDevice9>::pointer& device, D3DQUERYTYPE query) {
    ZEB_TRACE(fileLogger, "QueryNoBegin::QueryNoBegin");
    ZEB_ASSERT("VexilDX9/Query", 17, device.get());
    ZEB_ASSERT("VexilDX9/Query", 18, SUCCEEDED(initialize(device, query)));
}

QueryCommon::QueryCommon(const QueryCommon& other) = default;
QueryCommon& QueryCommon::operator=(const QueryCommon& other) = default;
QueryCommon::~QueryCommon() = default;

HRESULT QueryCommon::initialize(IDirect3DDevice9* device, D3DQUERYTYPE type) {
    ZEB_TRACE(fileLogger, "QueryCommon::initialize");
    // A null output only asks whether the type is supported.
    const HRESULT probe = device->CreateQuery(type, nullptr);
    logD3DFunction(fileLogger, "CreateQuery", probe, false);
    if (FAILED(probe)) {
        ZEB_LOG(fileLogger, 2, 24, "Query is not supported");
        return probe;
    }
    const HRESULT created = device->CreateQuery(type, m_query.receive());
    if (FAILED(created)) logD3DFunction(fileLogger, "CreateQuery", created, false);
    return created;
}

HRESULT QueryCommon::initialize(const COMPtr<IDirect3DDevice9>::pointer& device, D3DQUERYTYPE type) {
    return initialize(device.get(), type);
}

void QueryCommon::mark(unsigned long flags) const {
    ZEB_TRACE(fileLogger, "QueryCommon::mark");
    ZEB_ASSERT("VexilDX9/Query", 44, m_query.get());
    logD3DFunction(fileLogger, "IDirect3DQuery9::Issue", m_query->Issue(flags), false);
}
