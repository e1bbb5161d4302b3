#include "core/launchissue.h"
#include "platform/rawvalue.h"

#include "preferences/l10n.h"

using namespace Qt::StringLiterals;

namespace {
constexpr std::array<QStringView, 12> rawValues{u"crossover", u"bottle", u"steam",   u"game",
                                                 u"cli",       u"microphone", u"steamLogin", u"network",
                                                 u"version",   u"probe",  u"storage", u"unexpected"};
} // namespace

std::optional<LaunchIssue> LaunchIssue::fromRawValue(QStringView rawValue)
{
    return caseWithRawValue<LaunchIssue>(rawValue);
}

QString LaunchIssue::rawValue() const
{
    return rawValues[m_value].toString();
}

QString LaunchIssue::title() const
{
    return L(u"help."_s + rawValue() + u".title"_s);
}

QString LaunchIssue::detail() const
{
    return L(u"help."_s + rawValue() + u".detail"_s);
}

std::optional<LaunchIssue> LaunchIssue::classify(const QString &text)
{
    const QString lowered = text.toLower();
    const auto has = [&lowered](QStringView phrase) { return lowered.contains(phrase); };
    // The order matters: a version complaint explains the errors that follow it.
    if (has(u"unsupported game version") || has(u"game version mismatch"))
        return LaunchIssue(version);
    if (has(u"unable to find logged in steam user") || (has(u"waiting") && has(u"for steam to start up")))
        return LaunchIssue(steamLogin);
    if (has(u"connectionerror") || has(u"failed to download") || has(u"sslerror") || has(u"http error"))
        return LaunchIssue(network);
    if (has(u"permission denied") || has(u"no space left on device"))
        return LaunchIssue(storage);
    return std::nullopt;
}
