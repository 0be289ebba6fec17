#include <zeb/ComPtr.h>
#include <zeb/Logger.h>
#include <zeb/Resource.h>

namespace zeb {
SharedResourceDestroyerBase::~SharedResourceDestroyerBase() = default;
}  // namespace zeb

ZEB_FILE_LOGGER(comPtrLogger, "comptr")

void comPtrReleaseFailed() { ZEB_LOG(comPtrLogger, 4, 12, "COMPtr destructor caught an exception"); }
