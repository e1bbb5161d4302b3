#pragma once

#include "platform/systeminfo.h"

class FakeSystemFacts final : public SystemFacts {
public:
    QVariantMap info = {{QStringLiteral("CFBundleShortVersionString"), QStringLiteral("1.0.0")},
                        {QStringLiteral("CFBundleVersion"), QStringLiteral("1")}};
    QString operatingSystem = QStringLiteral("Test OS 1.0");
    std::optional<QString> crossOver;

    QVariantMap bundleInfo() const override { return info; }
    QString operatingSystemVersion() const override { return operatingSystem; }
    std::optional<QString> crossOverVersion() const override { return crossOver; }
};
