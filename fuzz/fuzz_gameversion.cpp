// The version reader over arbitrary executables: the file reader and the byte scanner agree,
// a version found is a real one (four parts, the first non-zero), and its text is a supported
// pattern it matches.
#include "fuzzcheck.h"

#include "games/gameversion.h"

#include <QFile>

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    // One byte over the cap is not read at all (a sparse file: nothing is really written).
    const QString huge = FuzzSupport::scratch() + QStringLiteral("/huge.exe");
    QFile file(huge);
    FUZZ_CHECK(file.open(QIODevice::WriteOnly));
    file.write("MZ");
    FUZZ_CHECK(file.resize(GameVersion::maximumExecutableSize + 1));
    file.close();
    FUZZ_CHECK(!GameVersion::read(huge));
    QFile::remove(huge);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes = FuzzSupport::bytes(data, size);
    const std::optional<GameVersion> parsed = GameVersion::parse(bytes);

    const QString path = FuzzSupport::scratch() + QStringLiteral("/game.exe");
    FuzzSupport::writeFile(path, bytes);
    FUZZ_CHECK(GameVersion::read(path) == parsed);

    if (parsed) {
        FUZZ_CHECK(parsed->parts().size() == 4);
        FUZZ_CHECK(parsed->parts().first() != 0);
        const QString text = parsed->text();
        const std::optional<QStringList> pieces = GameVersion::supportedParts(text);
        FUZZ_CHECK(pieces && pieces->size() == 4);
        for (qsizetype i = 0; i < 4; ++i)
            FUZZ_CHECK(pieces->at(i).toUInt() == parsed->parts().at(i));
        FUZZ_CHECK(parsed->matches(text) == std::optional<bool>(true));
        FUZZ_CHECK(parsed->matches(text + QLatin1Char('s')) == std::optional<bool>(true));
    }
    return 0;
}
