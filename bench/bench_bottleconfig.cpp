// Bringing a large cxbottle.conf to the profile must cost about what reading it line by line
// costs: the editor on a 1 MB file against a plain split and join of the same text.

#include "ratio.h"

#include "crossover/compatibilityprofile.h"

#include <QStringList>

using namespace Qt::StringLiterals;

namespace {
// About 1 MB in the shape CrossOver writes: many sections of quoted settings, with the profile's
// section in the middle and one of its values to change, so the edit does all of its work.
QString largeConfiguration()
{
    QString text;
    text.reserve(1 << 20);
    for (int section = 0; text.size() < (1 << 20); ++section) {
        if (section == 400) {
            text += u"[EnvironmentVariables]\n"_s;
            for (int i = 0; i < 200; ++i)
                text += u"\"VARIABLE_%1\" = \"value %1\" ; note\n"_s.arg(i);
            text += u"\"WINEMSYNC\" = \"0\"\n\n"_s;
        }
        text += u"[Section %1]\n"_s.arg(section);
        for (int i = 0; i < 40; ++i)
            text += u"\"Key%1\" = \"C:\\\\Program Files\\\\Thing %2\\\\file.dll\"\n"_s.arg(i).arg(section);
        text += u'\n';
    }
    return text;
}

// The editor's worst case: the whole megabyte is the profile's section, so every line is
// looked at for the profile's keys.
QString oneLargeSection()
{
    QString text = u"[EnvironmentVariables]\n"_s;
    for (int i = 0; text.size() < (1 << 20); ++i)
        text += u"  \"VARIABLE_%1\" = \"value %1 WINEMSYNC\" ; note\n"_s.arg(i);
    return text;
}

const QString &configuration()
{
    static const QString text = largeConfiguration();
    return text;
}

const QString &section()
{
    static const QString text = oneLargeSection();
    return text;
}

void BM_updatingBottleConfiguration(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(CompatibilityProfile::updatingBottleConfiguration(configuration()));
    state.SetBytesProcessed(state.iterations() * configuration().size() * qint64(sizeof(QChar)));
}

void BM_updatingOneLargeSection(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(CompatibilityProfile::updatingBottleConfiguration(section()));
    state.SetBytesProcessed(state.iterations() * section().size() * qint64(sizeof(QChar)));
}

void splitAndJoin(benchmark::State &state, const QString &text)
{
    for (auto _ : state) {
        const QStringList lines = text.split(u'\n');
        benchmark::DoNotOptimize(lines.join(u'\n'));
    }
    state.SetBytesProcessed(state.iterations() * text.size() * qint64(sizeof(QChar)));
}

void BM_splitAndJoin(benchmark::State &state)
{
    splitAndJoin(state, configuration());
}

void BM_splitAndJoinOneLargeSection(benchmark::State &state)
{
    splitAndJoin(state, section());
}
} // namespace

BENCHMARK(BM_splitAndJoin);
BENCHMARK(BM_updatingBottleConfiguration);
BENCHMARK(BM_splitAndJoinOneLargeSection);
BENCHMARK(BM_updatingOneLargeSection);

int main(int argc, char **argv)
{
    return kvnbench::runWithRatios(argc, argv,
                                   {{"BM_updatingBottleConfiguration", "BM_splitAndJoin", 3.0},
                                    {"BM_updatingOneLargeSection", "BM_splitAndJoinOneLargeSection", 3.0}});
}
