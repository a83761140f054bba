#pragma once

// Where things live on disk and the user's application settings.
//
// Every folder is worked out once and cached for the life of the process, and always ends with
// "/". A folder that cannot be located is a fatal error. The data folders and the settings file
// depend on the brand ("datastore_compat", "brand_id"), so the brand must be loaded before any of
// them is asked for. The resource folder may be set once, before it is first read.
//
// Settings are kept with QSettings in INI format under $XDG_CONFIG_HOME (default ~/.config):
// with "datastore_compat" false in tarnwell/Ambervale/<brand id>.ini, with it true in
// <brand id>/Tarnwell.ini. Keys are stored without their leading slash.

#include <QString>
#include <QVariant>

class QSettings;

class LmSettings
{
public:
    // Identifiers of the settings table; the numbers are the program's own.
    enum Id {
        ReportsSelectedReport = 0,
        ReportsWeightPeriod = 2,
        ReportsNutrientPeriod = 3,
        ReportsNutrientEnergyNet = 4,
        ReportsNutrientEnergyBurned = 5,
        ReportsNutrientEnergyIntake = 6,
        ReportsNutrientFat = 7,
        ReportsNutrientSaturatedFat = 8,
        ReportsNutrientCholesterol = 9,
        ReportsNutrientProtein = 10,
        ReportsNutrientSodium = 11,
        ReportsNutrientFiber = 12,
        ReportsNutrientCarb = 13,
        ReportsNutrientSugar = 14,
        ReportsNutrientCalcium = 15,
        ProxySettings = 16,
        StaticDbLastUpdate = 17,
        StaticDbUpdateInterval = 18,
        BrowserAdvancedSearch = 19,
        PalmCondDoNotSyncDevices = 20,
        DataBackupPath = 21,
        WebServer = 22, // the household's own online diary server, when it has one
    };

    // Type codes of the table.
    enum Type { Text = 0x2000, Integer = 0x4000, Boolean = 0x8000 };

    struct Definition
    {
        Id id;
        const char *key; // as the program names it, with its leading slash where it has one
        Type type;
        const char *defaultValue;
    };
    static const Definition *definition(Id id); // nullptr for an unknown id

    // Folders, each ending with "/".
    static QString resourcePath();
    static void setResourcePath(const QString &path); // once only, before the first read
    static QString contentPath();                     // resourcePath() + "content/"
    static QString helpPath();                        // resourcePath() + "helphtml/"
    static QString appDataPath();
    static QString dataPath();
    static QString versionOneDataPath();
    static QString userDatabasePath();
    static QString backupPath();

    // Typed access to the table; an absent key reads as the table's default.
    static QString readString(Id id);
    static int readInt(Id id);
    static bool readBool(Id id);
    static void write(Id id, const QVariant &value);
    static void remove(Id id);

    // Keys outside the table ("/admin/userdbpath", "/sync/uploadOnExit", ...).
    static bool contains(const QString &key);
    static QVariant readValue(const QString &key, const QVariant &defaultValue = QVariant());
    static void writeValue(const QString &key, const QVariant &value);
    static void removeValue(const QString &key);

    // The settings file in use (for messages and tests).
    static QString settingsFileName();

    // Forgets every cached folder and the settings object (tests change HOME and the brand
    // between cases; the program never calls it).
    static void resetForTesting();

private:
    static QSettings &settings();
};
