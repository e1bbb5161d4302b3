// The launch script's quoting: a quoted value, read back as one shell word by the POSIX
// rules, is the value unchanged, and the script carries every value only in that form.
// (quote_zsh_check runs the corpus through a real zsh as well.)
#include "fuzzcheck.h"

#include "crossover/launchscript.h"

namespace {
// One shell word made of single-quoted runs and backslash-escaped characters, as POSIX shells
// and zsh read it; nothing when the word holds anything else or does not end where the text does.
std::optional<QString> shellWord(const QString &word)
{
    QString value;
    qsizetype i = 0;
    while (i < word.size()) {
        const QChar c = word.at(i);
        if (c == u'\'') {
            const qsizetype close = word.indexOf(u'\'', i + 1);
            if (close < 0)
                return std::nullopt;
            value += word.mid(i + 1, close - i - 1);
            i = close + 1;
        } else if (c == u'\\' && i + 1 < word.size() && word.at(i + 1) != u'\n') {
            value += word.at(i + 1);
            i += 2;
        } else {
            return std::nullopt;
        }
    }
    return value;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString value = QString::fromUtf8(FuzzSupport::bytes(data, size));
    const QString quoted = LaunchScript::quote(value);
    FUZZ_CHECK(quoted.startsWith(u'\'') && quoted.endsWith(u'\'') && quoted.size() >= 2);
    FUZZ_CHECK(shellWord(quoted) == value);

    // Every path and argument reaches the script only quoted: the script for a value is the
    // script for a marker value with each quoted marker replaced by the quoted value.
    const auto scriptFor = [](const QString &text) {
        const QMap<QString, QString> environment
            = LaunchScript::environment(text, QStringLiteral("/w"), QStringLiteral("/s"), text);
        const QStringList arguments = LaunchScript::arguments(text, text, text, {text}, GameKind::ats);
        return LaunchScript::render(BottleLaunchMode(BottleLaunchMode::coldStart), text, text, text, text, arguments,
                                    environment, text, text);
    };
    const QString marker = QStringLiteral("\x01marker\x02");
    const QString script = scriptFor(value);
    FUZZ_CHECK(script == scriptFor(marker).replace(LaunchScript::quote(marker), quoted));
    FUZZ_CHECK(script.startsWith(QLatin1String("#!/bin/zsh\n")) && script.endsWith(QLatin1String("\nexit $?")));
    return 0;
}
