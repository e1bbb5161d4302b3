#include "platform/systeminfo.h"

#include "platform/bundleinfo.h"

namespace {
class RunningSystemFacts final : public SystemFacts {
public:
    QVariantMap bundleInfo() const override { return BundleInfo::main(); }
    QString operatingSystemVersion() const override { return SystemInfo::operatingSystemVersion(); }
    std::optional<QString> crossOverVersion() const override { return SystemInfo::crossOverVersion(); }
};
} // namespace

const SystemFacts &SystemFacts::system()
{
    static const RunningSystemFacts facts;
    return facts;
}
