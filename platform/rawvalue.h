#pragma once

#include <QStringView>

#include <optional>

// The case of a string-valued enumeration (one with allCases() and rawValue()) whose raw value
// is exactly `rawValue`: case-sensitive, no trimming, anything else is no case. Stored and
// received texts all go through this one comparison.
template <typename Enumeration>
std::optional<Enumeration> caseWithRawValue(QStringView rawValue)
{
    for (Enumeration candidate : Enumeration::allCases())
        if (rawValue == candidate.rawValue())
            return candidate;
    return std::nullopt;
}
