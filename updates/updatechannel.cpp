#include "updates/updatechannel.h"

#include "platform/userdefaults.h"

using namespace Qt::StringLiterals;

QString UpdateChannel::rawValue() const
{
    switch (m_value) {
    case beta:
        return u"beta"_s;
    case stable:
        break;
    }
    return u"stable"_s;
}

QSet<QString> UpdateChannel::allowed() const
{
    if (m_value == beta)
        return {u"beta"_s};
    return {};
}

UpdateChannel UpdateChannel::saved(const UserDefaults &defaults)
{
    const QVariant stored = defaults.object(defaultsKey);
    if (stored.typeId() == QMetaType::QString && stored.toString() == u"beta")
        return beta;
    return stable;
}
