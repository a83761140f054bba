#include "cli/cli.h"

#include <cstdio>

namespace Cli {

Arguments::Arguments(const QStringList &args, const QStringList &valueOptions, const QStringList &flags)
{
    bool optionsEnded = false;
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString &arg = args.at(i);
        if (optionsEnded || !arg.startsWith(QLatin1String("--"))) {
            _positionals.append(arg);
            continue;
        }
        if (arg == QLatin1String("--")) {
            optionsEnded = true;
            continue;
        }
        QString name = arg;
        QString value;
        bool inlineValue = false;
        if (const qsizetype eq = arg.indexOf(QLatin1Char('=')); eq > 0) {
            name = arg.left(eq);
            value = arg.mid(eq + 1);
            inlineValue = true;
        }
        if (flags.contains(name)) {
            if (inlineValue)
                usageError(QStringLiteral("option %1 takes no value").arg(name));
            _flags.insert(name);
        } else if (valueOptions.contains(name)) {
            if (!inlineValue) {
                if (i + 1 >= args.size())
                    usageError(QStringLiteral("option %1 needs a value").arg(name));
                value = args.at(++i);
            }
            _values.insert(name, value);
        } else {
            usageError(QStringLiteral("unknown option %1").arg(name));
        }
    }
}

void Arguments::expectPositionals(int min, int max, const QString &usage) const
{
    if (_positionals.size() < min || _positionals.size() > max)
        usageError(QStringLiteral("usage: tarnwell-cli %1").arg(usage));
}

void printLine(const QString &line)
{
    const QByteArray bytes = line.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
    std::fputc('\n', stdout);
}

void printJson(const QByteArray &document)
{
    std::fwrite(document.constData(), 1, size_t(document.size()), stdout);
    if (!document.endsWith('\n'))
        std::fputc('\n', stdout);
}

QString escapeField(const QString &value)
{
    QString out;
    out.reserve(value.size());
    for (const QChar c : value) {
        switch (c.unicode()) {
        case '\\':
            out += QLatin1String("\\\\");
            break;
        case '\t':
            out += QLatin1String("\\t");
            break;
        case '\n':
            out += QLatin1String("\\n");
            break;
        case '\r':
            out += QLatin1String("\\r");
            break;
        default:
            out += c;
        }
    }
    return out;
}

} // namespace Cli
