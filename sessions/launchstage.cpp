#include "sessions/launchstage.h"
#include "platform/rawvalue.h"

#include "preferences/l10n.h"

using namespace Qt::StringLiterals;

std::optional<LaunchStage> LaunchStage::fromRawValue(QStringView rawValue)
{
    return caseWithRawValue<LaunchStage>(rawValue);
}

QString LaunchStage::rawValue() const
{
    switch (m_value) {
    case checking: return u"checking"_s;
    case steam: return u"steam"_s;
    case updating: return u"updating"_s;
    case starting: return u"starting"_s;
    case playing: return u"playing"_s;
    case finished: return u"finished"_s;
    case failed: return u"failed"_s;
    case cancelled: return u"cancelled"_s;
    case interrupted: return u"interrupted"_s;
    }
    Q_UNREACHABLE();
    return {};
}

QString LaunchStage::title() const
{
    return L(u"stage."_s + rawValue());
}
