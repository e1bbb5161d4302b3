#include "games/gamekind.h"
#include "platform/rawvalue.h"

using namespace Qt::StringLiterals;

std::optional<GameKind> GameKind::fromRawValue(QStringView rawValue)
{
    return caseWithRawValue<GameKind>(rawValue);
}

QString GameKind::rawValue() const
{
    return m_value == ets2 ? u"Euro Truck Simulator 2"_s : u"American Truck Simulator"_s;
}

QString GameKind::executable() const
{
    return m_value == ets2 ? u"eurotrucks2.exe"_s : u"amtrucks.exe"_s;
}

QString GameKind::cliName() const
{
    return m_value == ets2 ? u"ets2kvn"_s : u"atskvn"_s;
}

QString GameKind::serverCode() const
{
    return m_value == ets2 ? u"ETS2"_s : u"ATS"_s;
}
