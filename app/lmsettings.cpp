#include "app/lmsettings.h"

#include "app/applog.h"
#include "brand/brandengine.h"
#include "common/lmassert.h"
#include "common/lmconstants.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QSettings>
#include <QStandardPaths>

#include <memory>

namespace {

constexpr LmSettings::Definition kTable[] = {
    {LmSettings::ReportsSelectedReport, "/reports/selectedReport", LmSettings::Integer, "0"},
    {LmSettings::ReportsWeightPeriod, "/reports/weight/period", LmSettings::Integer, "0"},
    {LmSettings::ReportsNutrientPeriod, "/reports/nutrient/period", LmSettings::Integer, "0"},
    {LmSettings::ReportsNutrientEnergyNet, "/reports/nutrient/energyNet", LmSettings::Boolean, "0"},
    {LmSettings::ReportsNutrientEnergyBurned, "/reports/nutrient/energyBurned", LmSettings::Boolean, "0"},
    {LmSettings::ReportsNutrientEnergyIntake, "/reports/nutrient/energyIntake", LmSettings::Boolean, "0"},
    {LmSettings::ReportsNutrientFat, "/reports/nutrient/fat", LmSettings::Boolean, "1"},
    {LmSettings::ReportsNutrientSaturatedFat, "/reports/nutrient/saturatedfat", LmSettings::Boolean, "0"},
    {LmSettings::ReportsNutrientCholesterol, "/reports/nutrient/cholesterol", LmSettings::Boolean, "0"},
    {LmSettings::ReportsNutrientProtein, "/reports/nutrient/protein", LmSettings::Boolean, "1"},
    {LmSettings::ReportsNutrientSodium, "/reports/nutrient/sodium", LmSettings::Boolean, "0"},
    {LmSettings::ReportsNutrientFiber, "/reports/nutrient/fiber", LmSettings::Boolean, "1"},
    {LmSettings::ReportsNutrientCarb, "/reports/nutrient/carb", LmSettings::Boolean, "1"},
    {LmSettings::ReportsNutrientSugar, "/reports/nutrient/sugar", LmSettings::Boolean, "0"},
    {LmSettings::ReportsNutrientCalcium, "/reports/nutrient/calcium", LmSettings::Boolean, "0"},
    {LmSettings::ProxySettings, "proxySettings", LmSettings::Text, ""},
    {LmSettings::StaticDbLastUpdate, "/staticdb/lastUpdate", LmSettings::Text, ""},
    {LmSettings::StaticDbUpdateInterval, "/staticdb/updateInterval", LmSettings::Integer, "28"},
    {LmSettings::BrowserAdvancedSearch, "/browser/advancedSearch", LmSettings::Boolean, "0"},
    {LmSettings::PalmCondDoNotSyncDevices, "/palmcond/doNotSyncDevices", LmSettings::Text, "0"},
    {LmSettings::DataBackupPath, "dataBackupPath", LmSettings::Text, ""},
    {LmSettings::WebServer, "/web/server", LmSettings::Text, ""},
};

constexpr qsizetype kMaxAppDataLength = 1000;

// Cached folders and the settings object, for the life of the process.
struct State
{
    QString resourcePath;
    QString appDataPath;
    QString dataPath;
    QString versionOneDataPath;
    QString userDatabasePath;
    QString backupPath;
    std::unique_ptr<QSettings> settings;
};

State &state()
{
    static State s;
    return s;
}

QString withSeparator(const QString &path)
{
    return path.endsWith(QLatin1Char('/')) ? path : path + QLatin1Char('/');
}

QString brandId()
{
    return BrandEngine::instance().getString(QStringLiteral("brand_id"));
}

bool compatLayout()
{
    return BrandEngine::instance().getBool(QStringLiteral("datastore_compat"));
}

// Creates each missing level; a folder that cannot be made is reported where it is used.
QString ensureFolder(const QString &path)
{
    if (!QDir().mkpath(path))
        qCWarning(lcApp, "Could not create folder %s", qUtf8Printable(path));
    return path;
}

// Keys are stored without their leading slash.
QString storedKey(const QString &key)
{
    return key.startsWith(QLatin1Char('/')) ? key.mid(1) : key;
}

// A hand-edited INI value with an unquoted comma reads back as a list; take it as the text it was.
QString storedText(const QVariant &value)
{
    if (value.typeId() == QMetaType::QStringList)
        return value.toStringList().join(QLatin1Char(','));
    return value.toString();
}

// The old settings layer named the organisation by the domain without its last dot-separated part.
QString organisationOf(const QString &domain)
{
    return domain.left(domain.lastIndexOf(QLatin1Char('.')));
}

const LmSettings::Definition &checkedDefinition(LmSettings::Id id, LmSettings::Type type)
{
    const LmSettings::Definition *definition = LmSettings::definition(id);
    LM_ASSERT(definition);
    LM_ASSERT(definition->type == type);
    return *definition;
}

} // namespace

const LmSettings::Definition *LmSettings::definition(Id id)
{
    for (const Definition &definition : kTable) {
        if (definition.id == id)
            return &definition;
    }
    return nullptr;
}

QString LmSettings::resourcePath()
{
    QString &resourcePath = state().resourcePath;
    if (resourcePath.isEmpty())
        resourcePath = withSeparator(QCoreApplication::applicationDirPath());
    return resourcePath;
}

void LmSettings::setResourcePath(const QString &path)
{
    const bool resourcePath = !state().resourcePath.isEmpty();
    LM_ASSERT(!resourcePath);
    state().resourcePath = withSeparator(QDir(path).absolutePath());
}

QString LmSettings::contentPath()
{
    return resourcePath() + QStringLiteral("content/");
}

QString LmSettings::helpPath()
{
    return resourcePath() + QStringLiteral("helphtml/");
}

QString LmSettings::appDataPath()
{
    QString &cached = state().appDataPath;
    if (!cached.isEmpty())
        return cached;

    QByteArray value;
    if (qEnvironmentVariableIsSet("XDG_DATA_HOME")) {
        value = qgetenv("XDG_DATA_HOME");
    } else if (qEnvironmentVariableIsSet("HOME")) {
        value = qgetenv("HOME") + "/.local/share";
    } else {
        Lm::fatal(QStringLiteral("Could not locate Application Data directory (1)"));
    }
    if (value.isEmpty() || value.size() > kMaxAppDataLength)
        Lm::fatal(QStringLiteral("Could not locate Application Data directory (2)"));

    const QString path = QDir(QFile::decodeName(value)).absolutePath();
    const bool created = QDir().mkpath(path);
    const QFileInfo info(path);
    if (!created || !info.isDir() || !info.isReadable() || !info.isWritable())
        Lm::fatal(QStringLiteral("Could not locate Application Data directory (3)"));
    cached = withSeparator(path);
    return cached;
}

QString LmSettings::dataPath()
{
    QString &cached = state().dataPath;
    if (cached.isEmpty()) {
        if (compatLayout()) {
            cached = appDataPath() + brandId() + QLatin1Char('/') + QLatin1String(Lm::kVendorFolder) +
                     QStringLiteral("/VersionTwo/Default/");
        } else {
            cached = appDataPath() + QLatin1String(Lm::kVendorDomain) + QLatin1Char('/') +
                     QLatin1String(Lm::kVendorFolder) + QLatin1Char('/') + brandId() + QLatin1Char('/');
        }
        ensureFolder(cached);
    }
    return cached;
}

QString LmSettings::versionOneDataPath()
{
    QString &cached = state().versionOneDataPath;
    if (cached.isEmpty()) {
        const QString base = compatLayout() ? brandId() : QLatin1String(Lm::kVendorDomain);
        cached = appDataPath() + base + QLatin1Char('/') + QLatin1String(Lm::kVendorFolder) +
                 QStringLiteral("/VersionOne/Default/");
        ensureFolder(cached);
    }
    return cached;
}

QString LmSettings::userDatabasePath()
{
    QString &cached = state().userDatabasePath;
    if (cached.isEmpty()) {
        const QString configured = storedText(readValue(QStringLiteral("/admin/userdbpath")));
        const QString folder = configured.isEmpty() ? dataPath() : configured;
        cached = withSeparator(QDir(folder).absolutePath());
    }
    return cached;
}

QString LmSettings::backupPath()
{
    QString &cached = state().backupPath;
    if (cached.isEmpty()) {
        QString path = readString(DataBackupPath);
        if (path.trimmed().isEmpty()) {
            path = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation) + QLatin1Char('/') +
                   brandId() + QStringLiteral(" Backups/");
            write(DataBackupPath, path);
            // Where a backup goes by default must exist when the user is first offered it.
            QDir().mkpath(path);
        }
        cached = withSeparator(path);
    }
    return cached;
}

QString LmSettings::readString(Id id)
{
    const Definition &definition = checkedDefinition(id, Text);
    const QVariant value = settings().value(storedKey(QLatin1String(definition.key)));
    return value.isValid() ? storedText(value) : QLatin1String(definition.defaultValue);
}

int LmSettings::readInt(Id id)
{
    const Definition &definition = checkedDefinition(id, Integer);
    const QVariant value = settings().value(storedKey(QLatin1String(definition.key)));
    bool ok = false;
    const int result = storedText(value).trimmed().toInt(&ok);
    return ok ? result : QByteArray(definition.defaultValue).toInt();
}

bool LmSettings::readBool(Id id)
{
    const Definition &definition = checkedDefinition(id, Boolean);
    const QVariant value = settings().value(storedKey(QLatin1String(definition.key)));
    if (!value.isValid())
        return qstrcmp(definition.defaultValue, "1") == 0;
    const QString text = storedText(value).trimmed().toLower();
    return text == QLatin1String("1") || text == QLatin1String("true");
}

void LmSettings::write(Id id, const QVariant &value)
{
    const Definition *definition = LmSettings::definition(id);
    LM_ASSERT(definition);
    QVariant stored = value;
    switch (definition->type) {
    case Integer:
        stored = QString::number(value.toInt());
        break;
    case Boolean:
        stored = value.toBool() ? QStringLiteral("true") : QStringLiteral("false");
        break;
    case Text:
        stored = value.toString();
        break;
    }
    writeValue(QLatin1String(definition->key), stored);
}

void LmSettings::remove(Id id)
{
    const Definition *definition = LmSettings::definition(id);
    LM_ASSERT(definition);
    removeValue(QLatin1String(definition->key));
}

bool LmSettings::contains(const QString &key)
{
    return settings().contains(storedKey(key));
}

QVariant LmSettings::readValue(const QString &key, const QVariant &defaultValue)
{
    return settings().value(storedKey(key), defaultValue);
}

void LmSettings::writeValue(const QString &key, const QVariant &value)
{
    settings().setValue(storedKey(key), value);
    settings().sync();
}

void LmSettings::removeValue(const QString &key)
{
    settings().remove(storedKey(key));
    settings().sync();
}

QString LmSettings::settingsFileName()
{
    return settings().fileName();
}

void LmSettings::resetForTesting()
{
    state() = State();
}

QSettings &LmSettings::settings()
{
    std::unique_ptr<QSettings> &settings = state().settings;
    if (!settings) {
        // The compat domain carries a dummy suffix so that exactly the brand id is left of it.
        QString organisation;
        QString application;
        if (compatLayout()) {
            organisation = organisationOf(brandId() + QStringLiteral(".last_dot_and_after_is_chopped_off"));
            application = QLatin1String(Lm::kProductName);
        } else {
            organisation = organisationOf(QLatin1String(Lm::kVendorDomain));
            application = QLatin1String(Lm::kVendorFolder) + QLatin1Char('/') + brandId();
        }
        // An explicit file, so that a changed XDG_CONFIG_HOME is honoured by the next object.
        const QString file = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
                             QLatin1Char('/') + organisation + QLatin1Char('/') + application +
                             QStringLiteral(".ini");
        settings = std::make_unique<QSettings>(file, QSettings::IniFormat);
    }
    return *settings;
}
