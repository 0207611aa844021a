// The Codex usage answer, as the usage endpoint could send it.
#include "FuzzCheck.h"

#include "platform/Json.h"
#include "services/codex/CodexProvider.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    if (const auto answer = limitra::platform::Json::parseObject(bytes)) {
        const auto rows = limitra::CodexProvider::parseRows(*answer, limitra::fuzz::kNow);
        limitra::fuzz::require(rows.size() <= 2, "at most the two windows");
        limitra::fuzz::checkRows(rows);
    }
    return 0;
}
