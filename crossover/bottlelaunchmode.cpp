#include "crossover/bottlelaunchmode.h"
#include "platform/rawvalue.h"
#include "crossover/bottleprocesssnapshot.h"

using namespace Qt::StringLiterals;

std::optional<BottleLaunchMode> BottleLaunchMode::fromRawValue(QStringView rawValue)
{
    return caseWithRawValue<BottleLaunchMode>(rawValue);
}

QString BottleLaunchMode::rawValue() const
{
    switch (m_value) {
    case reuseSteam: return u"reuseSteam"_s;
    case coldStart: return u"coldStart"_s;
    case profileChange: return u"profileChange"_s;
    case recovery: return u"recovery"_s;
    }
    return {};
}

std::optional<BottleLaunchMode> BottleLaunchMode::normal(const BottleProcessSnapshot &snapshot,
                                                         bool compatibilityChanged)
{
    if (snapshot.truckGameIsRunning())
        return std::nullopt;
    if (snapshot.steamIsRunning())
        return compatibilityChanged ? profileChange : reuseSteam;
    return coldStart;
}
