#include "updates/releasenotes.h"

#include "platform/boundedread.h"
#include "preferences/l10n.h"

#include <QFile>
#include <QStringList>

#include <algorithm>

using namespace Qt::StringLiterals;

std::optional<QString> LatestReleaseNotes::extract(const QString &text)
{
    QString normalized = text;
    normalized.replace(u"\r\n"_s, u"\n"_s);
    const QStringList lines = normalized.split(u'\n');
    const auto heading = [](const QString &line) { return line.startsWith(u"## "); };
    const auto first = std::find_if(lines.begin(), lines.end(), heading);
    if (first == lines.end())
        return std::nullopt;
    const auto end = std::find_if(std::next(first), lines.end(), heading);
    return QStringList(first, end).join(u'\n').trimmed();
}

QString LatestReleaseNotes::fileName(AppLanguage language)
{
    switch (language) {
    case AppLanguage::german:
        return u"CHANGELOG.de.md"_s;
    case AppLanguage::hungarian:
        return u"CHANGELOG.hu.md"_s;
    case AppLanguage::english:
        break;
    }
    return u"CHANGELOG.md"_s;
}

QString LatestReleaseNotes::load(const QString &resources, AppLanguage language)
{
    QFile file(resources + u'/' + fileName(language));
    if (!resources.isEmpty() && file.open(QIODevice::ReadOnly) && file.size() <= maximumFileSize) {
        if (const std::optional<QString> notes = extract(QString::fromUtf8(BoundedRead::upTo(file, maximumFileSize))))
            return *notes;
    }
    return L("center.notes.unavailable");
}

QList<ReleaseNotesText::Line> ReleaseNotesText::lines(const QString &notes)
{
    QList<Line> result;
    for (const QString &line : notes.split(u'\n')) {
        if (line.startsWith(u'#')) {
            qsizetype start = 0;
            while (start < line.size() && (line.at(start) == u'#' || line.at(start) == u' '))
                ++start;
            result.append({line.startsWith(u"###") ? Line::Kind::headline : Line::Kind::title, line.mid(start)});
        } else if (line.startsWith(u"- ")) {
            result.append({Line::Kind::listItem, u"• "_s + line.mid(2)});
        } else {
            result.append({Line::Kind::plain, line});
        }
    }
    return result;
}
