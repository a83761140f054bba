// The brand the program ships: every value it asks for is there, with the right type.

#include "brand/brandengine.h"
#include "testsupport.h"

#include <QGuiApplication>
#include <QPixmap>

class TestDefaultBrand : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(BrandEngine::instance().load(binDir() + QStringLiteral("/brand.dat"))); }
    void cleanupTestCase() { BrandEngine::release(); }

    void everyQueriedIdExists_data();
    void everyQueriedIdExists();
    void productValues();
    void everyImageDecodes();
    void webAddresses_data();
    void webAddresses();
};

void TestDefaultBrand::everyQueriedIdExists_data()
{
    QTest::addColumn<int>("type");
    const auto add = [](BrandEngine::ValueType type, std::initializer_list<const char *> ids) {
        for (const char *id : ids)
            QTest::newRow(id) << int(type);
    };
    add(BrandEngine::ValueType::Bool,
        {"update_enabled", "publish_enabled", "publish_on_quit_forced", "mealplans_enabled",
         "metrics_enabled", "feature.family", "install.other_brand", "dietplan.brindlemoss.enabled",
         "conduit_enabled", "datastore_compat", "steps_measurement_enabled", "chest_measurement_enabled",
         "waist_measurement_enabled", "hip_measurement_enabled", "thigh_measurement_enabled"});
    add(BrandEngine::ValueType::Int,
        {"default_energy_units", "default_measurement_units", "datastore.old_path.count", "www_count"});
    add(BrandEngine::ValueType::String,
        {"app_name", "app_name_short", "brand_id", "creatorid", "web_address", "web_name", "update_rss_url",
         "publish_auth_url", "mealplan_auth_url", "metrics_auth_url", "spelling_fiber", "spelling_favorite",
         "spelling_customize", "spelling_personalized", "spelling_twoweeks"});
    // splash, report and profile pictures
    add(BrandEngine::ValueType::Image,
        {"splash", "graphics.icon.breakdown", "graphics.icon.nutrient", "graphics.icon.pedometer",
         "graphics.icon.summary", "graphics.icon.weight", "graphics.image.profile.logo"});
    // section pictures, the signature and the green ticks
    add(BrandEngine::ValueType::Image,
        {"checkin_icon", "diary_icon", "reports_icon", "garphics.tobrin.signature", "graphics_tick_no_no",
         "graphics_tick_no_yes", "graphics_tick_yes_no", "graphics_tick_yes_yes"});
    // tool buttons
    add(BrandEngine::ValueType::Image,
        {"graphics.icon.addbutton", "graphics.icon.backarrow", "graphics.icon.frontarrow",
         "graphics.icon.checkin.delete", "graphics.icon.checkin.edit", "graphics.icon.checkin.today",
         "graphics.icon.copy", "graphics.icon.cross", "graphics.icon.diary.delete"});
    add(BrandEngine::ValueType::Image,
        {"graphics.icon.diary.edit", "graphics.icon.exercise", "graphics.icon.food", "graphics.icon.help",
         "graphics.icon.mealplan", "graphics.icon.print", "graphics.icon.publish",
         "graphics.icon.search_small", "graphics.icon.searchclear_small", "graphics.icon.tick",
         "graphics.icon.updatedb", "graphics.icon.web.back", "graphics.icon.web.forward",
         "graphics.icon.web.home"});
}

void TestDefaultBrand::everyQueriedIdExists()
{
    QFETCH(int, type);
    const QString id = QString::fromUtf8(QTest::currentDataTag());
    QVERIFY(BrandEngine::instance().ids(BrandEngine::ValueType(type)).contains(id));
}

void TestDefaultBrand::productValues()
{
    const BrandEngine &brand = BrandEngine::instance();
    QCOMPARE(brand.getString(QStringLiteral("brand_id")), QStringLiteral("Tarnwell"));
    QCOMPARE(brand.getString(QStringLiteral("app_name")), QStringLiteral("Tarnwell Nutrition Diary"));
    QCOMPARE(brand.getString(QStringLiteral("spelling_fiber")), QStringLiteral("fibre"));
    QCOMPARE(brand.getInt(QStringLiteral("default_measurement_units")), 0); // metric
    QCOMPARE(brand.getInt(QStringLiteral("default_energy_units")), 1);      // calories, as profiles store it
    QVERIFY(brand.getBool(QStringLiteral("feature.family")));
    QVERIFY(!brand.getBool(QStringLiteral("datastore_compat")));
    QVERIFY(!brand.getBool(QStringLiteral("conduit_enabled")));
}

void TestDefaultBrand::everyImageDecodes()
{
    const BrandEngine &brand = BrandEngine::instance();
    for (const QString &id : brand.ids(BrandEngine::ValueType::Image)) {
        const QPixmap pixmap = brand.getPixmap(id);
        QVERIFY2(!pixmap.isNull(), qPrintable(id));
        QVERIFY2(pixmap.width() >= 16 && pixmap.height() >= 16, qPrintable(id));
        // Each has its picture for dense screens, at the same size on screen.
        const QPixmap dense = brand.getPixmap(id, 2.0);
        QVERIFY2(dense.devicePixelRatio() == 2.0 && dense.deviceIndependentSize() == QSizeF(pixmap.size()),
                 qPrintable(id));
    }
    QCOMPARE(brand.getPixmap(QStringLiteral("graphics.icon.tick")).size(), QSize(32, 32));
    QCOMPARE(brand.getPixmap(QStringLiteral("splash")).size(), QSize(480, 300));
}

void TestDefaultBrand::webAddresses_data()
{
    QTest::addColumn<QString>("id");
    QTest::addColumn<QString>("prefix");
    QTest::newRow("update feed") << QStringLiteral("update_rss_url") << QStringLiteral("http://localhost/");
    QTest::newRow("publish") << QStringLiteral("publish_auth_url") << QStringLiteral("http://localhost/");
    QTest::newRow("meal plan") << QStringLiteral("mealplan_auth_url") << QStringLiteral("http://localhost/");
    QTest::newRow("metrics") << QStringLiteral("metrics_auth_url") << QStringLiteral("https://localhost/");
}

void TestDefaultBrand::webAddresses()
{
    QFETCH(QString, id);
    QFETCH(QString, prefix);
    QString url = BrandEngine::instance().getString(id);
    const QString error = BrandEngine::instance().expandUrlVariables(
        url, {QStringLiteral("ann"), QStringLiteral("secret"), QStringLiteral("/opt/tarnwell/content/")});
    QCOMPARE(error, QString());
    QVERIFY2(url.startsWith(prefix), qPrintable(url));
    QVERIFY2(!url.contains(QLatin1Char('$')), qPrintable(url));
    if (id == QLatin1String("mealplan_auth_url") || id == QLatin1String("metrics_auth_url"))
        QVERIFY(url.endsWith(QLatin1Char('&'))); // the client appends its parameters
}

QTEST_MAIN(TestDefaultBrand)
#include "tst_defaultbrand.moc"
