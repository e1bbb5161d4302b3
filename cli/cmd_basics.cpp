#include "cli/context.h"

#include "games/gameversion.h"
#include "preferences/l10n.h"

using namespace Qt::StringLiterals;

int gameVersionCommand(CliContext &context, const QStringList &arguments)
{
    if (arguments.size() != 1) {
        context.err << "usage: korvanectl game-version PATH\n";
        return 2;
    }
    const auto version = GameVersion::read(arguments.first());
    context.out << (version ? version->text() : u"unknown"_s) << '\n';
    return version ? 0 : 1;
}

int textCommand(CliContext &context, const QStringList &arguments)
{
    QStringList rest = arguments;
    bool missing = false;
    const auto code = takeOption(rest, u"--lang"_s, &missing);
    if (missing || rest.isEmpty()) {
        context.err << "usage: korvanectl text KEY [ARG...] [--lang en|de|hu]\n";
        return 2;
    }
    std::optional<AppLanguage> language;
    if (code) {
        language = AppLanguage::fromRawValue(*code);
        if (!language) {
            context.err << "korvanectl: unknown language \"" << *code << "\" (en, de or hu)\n";
            return 2;
        }
    }
    const QString key = rest.takeFirst();
    // Arguments that read as whole numbers are passed as numbers, so "%d" placeholders work.
    QVariantList values;
    for (const QString &argument : std::as_const(rest)) {
        bool isNumber = false;
        const qlonglong number = argument.toLongLong(&isNumber);
        values.append(isNumber ? QVariant(number) : QVariant(argument));
    }
    context.out << L10n::text(key, language, values) << '\n';
    return 0;
}
