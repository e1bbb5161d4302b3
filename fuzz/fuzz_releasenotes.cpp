// The release-notes extraction: the newest section starts with its "## " heading, holds no
// second one, comes from the text itself and is its own newest section; the view's lines keep
// one element per line.
#include "fuzzcheck.h"

#include "updates/releasenotes.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString text = QString::fromUtf8(FuzzSupport::bytes(data, size));
    QString normalized = text;
    normalized.replace(QLatin1String("\r\n"), QLatin1String("\n"));
    const std::optional<QString> notes = LatestReleaseNotes::extract(text);
    FUZZ_CHECK(notes.has_value() == (normalized.startsWith(QLatin1String("## ")) || normalized.contains(QLatin1String("\n## "))));
    if (notes) {
        FUZZ_CHECK(notes->startsWith(QLatin1String("##")));
        FUZZ_CHECK(!notes->contains(QLatin1String("\n## ")));
        FUZZ_CHECK(normalized.contains(*notes));
        // Its own newest section, unless a stray CR before a line break now forms a CR LF.
        if (notes->startsWith(QLatin1String("## ")) && !notes->contains(u'\r'))
            FUZZ_CHECK(LatestReleaseNotes::extract(*notes) == notes);
    }
    const QList<ReleaseNotesText::Line> lines = ReleaseNotesText::lines(normalized);
    const QStringList source = normalized.split(u'\n');
    FUZZ_CHECK(lines.size() == source.size());
    for (qsizetype i = 0; i < lines.size(); ++i) {
        using Kind = ReleaseNotesText::Line::Kind;
        const QString &line = source.at(i);
        const ReleaseNotesText::Line &shown = lines.at(i);
        FUZZ_CHECK((shown.kind == Kind::headline || shown.kind == Kind::title) == line.startsWith(u'#'));
        FUZZ_CHECK(line.endsWith(shown.text) || shown.kind == Kind::listItem);
        if (shown.kind == Kind::plain)
            FUZZ_CHECK(shown.text == line);
    }
    return 0;
}
