// The debugger's process listing: an accepted listing names at least one program, every name a
// lower-cased file name without folders or quotes, each of them quoted in the listing itself.
#include "fuzzcheck.h"

#include "crossover/bottleprocesssnapshot.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString output = QString::fromUtf8(FuzzSupport::bytes(data, size));
    std::optional<BottleProcessSnapshot> snapshot;
    try {
        snapshot.emplace(output);
    } catch (WineProcessProbeError error) {
        FUZZ_CHECK(error == WineProcessProbeError::unrecognizedOutput);
        return 0;
    }
    FUZZ_CHECK(output.contains(QLatin1String("pid")) && output.contains(QLatin1String("threads"))
               && output.contains(QLatin1String("executable")));
    FUZZ_CHECK(!snapshot->executables.isEmpty());
    const QString lowered = output.toLower();
    for (const QString &name : std::as_const(snapshot->executables)) {
        FUZZ_CHECK(!name.contains(u'/') && !name.contains(u'\\') && !name.contains(u'\'')
                   && !name.contains(u'\n') && !name.contains(u'\r'));
        FUZZ_CHECK(name == name.toLower());
        // The name closes a quoted path of the listing.
        FUZZ_CHECK(lowered.contains(u'\\' + name + u'\'') || lowered.contains(u'/' + name + u'\'')
                   || lowered.contains(u'\'' + name + u'\''));
    }
    return 0;
}
