// The Claude usage answer, as the usage endpoint could send it.
#include "FuzzCheck.h"

#include "platform/Json.h"
#include "services/claude/ClaudeProvider.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    if (const auto answer = limitra::platform::Json::parseObject(bytes))
        limitra::fuzz::checkRows(limitra::ClaudeProvider::parseRows(*answer));
    return 0;
}
