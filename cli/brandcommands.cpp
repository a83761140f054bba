#include "cli/commands.h"

#include "app/messagehandler.h"
#include "brand/brandengine.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace Cli {
namespace {

struct TypeName
{
    BrandEngine::ValueType type;
    const char *name;
};

// Printed in this order.
constexpr TypeName kTypes[] = {
    {BrandEngine::ValueType::Bool, "bool"},
    {BrandEngine::ValueType::Int, "int"},
    {BrandEngine::ValueType::String, "string"},
    {BrandEngine::ValueType::Image, "image"},
};

QString valueText(const BrandEngine &brand, BrandEngine::ValueType type, const QString &id)
{
    switch (type) {
    case BrandEngine::ValueType::Bool:
        return brand.getBool(id) ? QStringLiteral("true") : QStringLiteral("false");
    case BrandEngine::ValueType::Int:
        return QString::number(brand.getInt(id));
    case BrandEngine::ValueType::String:
        return brand.getString(id);
    case BrandEngine::ValueType::Image:
        return brand.getImageFile(id);
    }
    return QString();
}

QJsonValue jsonValue(const BrandEngine &brand, BrandEngine::ValueType type, const QString &id)
{
    switch (type) {
    case BrandEngine::ValueType::Bool:
        return brand.getBool(id);
    case BrandEngine::ValueType::Int:
        return brand.getInt(id);
    default:
        return valueText(brand, type, id);
    }
}

} // namespace

int brandDump(Context &context, const QStringList &args)
{
    const Arguments arguments(args, {});
    arguments.expectPositionals(1, 1, QStringLiteral("brand-dump FILE"));
    const QString file = arguments.positionals().constFirst();

    Lm::setEchoWarnings(true);
    BrandEngine &brand = BrandEngine::instance();
    const bool loaded = brand.load(file);
    Lm::setEchoWarnings(false);
    if (!loaded)
        failure(QStringLiteral("Cannot find %1").arg(file));

    if (context.options.json) {
        QJsonObject document;
        for (const TypeName &type : kTypes) {
            QJsonObject table;
            for (const QString &id : brand.ids(type.type))
                table.insert(id, jsonValue(brand, type.type, id));
            document.insert(QLatin1String(type.name), table);
        }
        printJson(QJsonDocument(document).toJson(QJsonDocument::Indented));
        return Success;
    }

    for (const TypeName &type : kTypes) {
        for (const QString &id : brand.ids(type.type)) {
            printLine(QLatin1String(type.name) + QLatin1Char('\t') + escapeField(id) + QLatin1Char('\t')
                      + escapeField(valueText(brand, type.type, id)));
        }
    }
    return Success;
}

} // namespace Cli
