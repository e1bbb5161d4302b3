// The settings document: whatever the reader accepts is valid, and survives a write and a
// read unchanged, pretty or compact; one byte over the cap is refused before parsing.
#include "fuzzcheck.h"

#include "preferences/settingstransfer.h"

namespace {
std::optional<SettingsTransfer> decoded(const QByteArray &data, SettingsTransferError::Code *refusal = nullptr)
{
    try {
        return SettingsTransfer::decode(data);
    } catch (const SettingsTransferError &error) {
        if (refusal)
            *refusal = error.code();
        return std::nullopt;
    }
}

const char validDocument[]
    = R"({"favorites":[3,1],"game":"Euro Truck Simulator 2","language":"de","profiles":{)"
      R"("American Truck Simulator":{"bottle":"","desktopSize":"1920x1080","directory":"","hide":true,"restore":true,"skipIntro":false},)"
      R"("Euro Truck Simulator 2":{"bottle":"/b","desktopSize":"1280x720","directory":"/g","hide":false,"restore":true,"skipIntro":true}},)"
      R"("schema":1})";
} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    // Trailing blanks are valid JSON: at the cap the document is read, one byte more refuses it.
    QByteArray document(validDocument);
    document.append(QByteArray(SettingsTransfer::maximumSize - document.size(), ' '));
    FUZZ_CHECK(decoded(document));
    document.append(' ');
    SettingsTransferError::Code refusal = SettingsTransferError::fileReadCorruptFile;
    FUZZ_CHECK(!decoded(document, &refusal) && refusal == SettingsTransferError::fileReadTooLarge);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::optional<SettingsTransfer> document = decoded(FuzzSupport::bytes(data, size));
    if (!document)
        return 0;
    document->validate(); // throws (and so fails the run) on an accepted but invalid document
    for (const bool pretty : {false, true}) {
        const QByteArray written = document->encoded(pretty);
        const std::optional<SettingsTransfer> read = decoded(written);
        FUZZ_CHECK(read && *read == *document);
        FUZZ_CHECK(read->encoded(pretty) == written);
    }
    return 0;
}
