#include "crossover/statusfile.h"

#include <QStringDecoder>

#include <limits>

namespace StatusFile {

std::optional<int> exitCode(const QByteArray &contents)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = QString(decoder.decode(contents)).trimmed();
    if (decoder.hasError() || text.isEmpty())
        return std::nullopt;
    qsizetype index = text.front() == u'+' || text.front() == u'-' ? 1 : 0;
    if (index == text.size())
        return std::nullopt;
    qint64 value = 0;
    for (; index < text.size(); ++index) {
        const QChar digit = text.at(index);
        if (digit < u'0' || digit > u'9')
            return std::nullopt;
        value = value * 10 + (digit.unicode() - u'0');
        if (value > qint64(std::numeric_limits<int>::max()) + 1)
            return std::nullopt;
    }
    if (text.front() == u'-')
        value = -value;
    if (value > std::numeric_limits<int>::max() || value < std::numeric_limits<int>::min())
        return std::nullopt;
    return int(value);
}

} // namespace StatusFile
