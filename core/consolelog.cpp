#include "core/consolelog.h"

void ConsoleLog::append(const QString &piece)
{
    if (piece.isEmpty())
        return;
    m_text.append(piece);
    qsizetype removed = 0;
    if (m_text.size() >= limit) {
        removed = m_text.size() - keptLength;
        // Never half a character: a pair of surrogates goes as a whole.
        if (m_text.at(removed).isLowSurrogate())
            ++removed;
        m_text.remove(0, removed);
    }
    Q_EMIT appended(piece, removed);
}

void ConsoleLog::replace(const QString &text)
{
    m_text = text.size() >= limit ? text.right(keptLength) : text;
    Q_EMIT replaced();
}
