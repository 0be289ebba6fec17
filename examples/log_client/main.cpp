// Logs a failed Direct3D result through the library and prints what its logger received.
#include <VexilDX9/VexilDX9.h>

#include <d3d9.h>

#include <cstdio>

namespace {

ZEB_FILE_LOGGER(clientLogger, "client")

class PrintingSink : public zeb::LogSink {
public:
    void write(const zeb::Logger& logger, zeb::LOGGER_PRIORITY priority, const zeb::String& message) override {
        std::printf("%s|%d|%s\n", logger.name().getUTF8String().c_str(), static_cast<int>(priority),
                    message.getUTF8String().c_str());
    }
};

}  // namespace

int main() {
    PrintingSink sink;
    zeb::LogFactory::setDefaultSinkEnabled(false);
    zeb::LogFactory::addSink(&sink);
    // Containers cross the interface as values.
    zeb::OrderedHashTable<zeb::String, unsigned int> table;
    table.insert(zeb::String("Reset"), 1u);
    long hr = VexilDX9::logD3DFunction(clientLogger, table.keyAt(0), D3DERR_DEVICELOST, false);
    zeb::LogFactory::removeSink(&sink);
    return hr == D3DERR_DEVICELOST ? 0 : 1;
}
