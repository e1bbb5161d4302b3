#pragma once

#include <QList>
#include <QMetaType>
#include <QString>

// A CrossOver bottle, known by the path of its directory alone.
struct Bottle {
    QString path;

    QString id() const { return path; }
    // The directory's own name, shown to the user and used for sorting.
    QString name() const
    {
        const qsizetype slash = path.lastIndexOf(u'/', path.endsWith(u'/') ? -2 : -1);
        QString last = path.mid(slash + 1);
        if (last.endsWith(u'/'))
            last.chop(1);
        return last;
    }

    bool operator==(const Bottle &other) const { return path == other.path; }
};

inline size_t qHash(const Bottle &bottle, size_t seed = 0) { return qHash(bottle.path, seed); }

Q_DECLARE_METATYPE(Bottle)
