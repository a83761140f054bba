// CSV export of a real diary, byte for byte.

#include "db/diarydb.h"
#include "db/userdb.h"
#include "dbfixture.h"
#include "reports/csvexportdiary.h"

class TestCsvExport : public QObject
{
    Q_OBJECT

private:
    DbFixture _db;
    int _user = -1;
    QByteArray read(const QString &path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
    }

private slots:
    void init();
    void cleanup() { _db.stop(); }
    void wholeRangeAndDayFiles();
    void failures_data();
    void failures();
};

void TestCsvExport::init()
{
    QVERIFY(_db.start());
    UserProfile profile;
    profile.name = QStringLiteral("Ann");
    _user = UserDB::createUser(profile, UserSettings(), 168, QStringLiteral("20070101"));
    const DiaryDB diary;
    const auto add = [&](const QString &day, int meal, const QString &name, const QString &serving, float qty,
                         std::array<float, 5> values) {
        FoodDiaryItem item(true);
        item.user_id = _user;
        item.date = day;
        item.meal = meal;
        item.food_name = name;
        item.serv_name = serving;
        item.size = qty;
        const int types[] = {ENERGY, CARB, FAT, FIBER, PROTEIN};
        for (int i = 0; i < 5; ++i)
            item.setNutrient(types[i], values[size_t(i)]);
        diary.addFoodEntry(item);
        return item.food_id;
    };
    add(QStringLiteral("20070102"), BREAKFAST, QStringLiteral("Toast"), QStringLiteral("slice"), 1, {80, 15, 1, 0.5f, 3});
    add(QStringLiteral("20070102"), SNACK_1, QStringLiteral("12\" pizza"), QStringLiteral("slice"), 2.5f, {600, 70, 0, -1, 25});
    const int gone = add(QStringLiteral("20070102"), DINNER, QStringLiteral("Deleted"), QStringLiteral("x"), 1, {1, 1, 1, 1, 1});
    diary.removeFoodEntry(gone);
    add(QStringLiteral("20070104"), SNACK_3, QStringLiteral("Apple"), QStringLiteral("1 medium"), 1, {95, 25, 0.3f, 4.4f, 0.5f});
    ExerciseDiaryItem walk;
    walk.user_id = _user;
    walk.date = QStringLiteral("20070102");
    walk.duration = 30;
    walk.rate = 5;
    walk.name = QStringLiteral("Walking");
    diary.addExerciseEntry(walk);
}

void TestCsvExport::wholeRangeAndDayFiles()
{
    const QString file = _db.path(QStringLiteral("diary.csv"));
    const QString folder = _db.path(QStringLiteral("days"));
    QVERIFY(QDir().mkpath(folder));
    QCOMPARE(exportDiary(_user, file, folder, QDate(2007, 1, 1), QDate(2007, 1, 4), true), QString());

    const QByteArray header = "\"Date\",\"Time\",\"Group Type\",\"Group Label\",\"Item Name\",\"Qty\",\"Serving\","
                              "\"Calories\",\"Carbs\",\"Fat\",\"Fibre\",\"Protein\"\n";
    const QByteArray second =
        "\"2007-01-02\",\"\",\"Breakfast\",\"\",\"Toast\",\"1.00\",\"slice\",\"80.00\",\"15.00\",\"1.00\",\"0.50\",\"3.00\",\n"
        "\"2007-01-02\",\"\",\"Unknown\",\"\",\"12' pizza\",\"2.50\",\"slice\",\"600.00\",\"70.00\",\"0.00\",\"\",\"25.00\",\n"
        "\"2007-01-02\",\"\",\"Exercise\",\"\",\"Walking\",\"30.00\",\"minutes\",\"-150.00\",\n";
    const QByteArray fourth =
        "\"2007-01-04\",\"\",\"Snack\",\"\",\"Apple\",\"1.00\",\"1 medium\",\"95.00\",\"25.00\",\"0.30\",\"4.40\",\"0.50\",\n";
    QCOMPARE(read(file), header + second + fourth);
    QCOMPARE(read(folder + QStringLiteral("/2007-01-02")), header + second);
    QCOMPARE(read(folder + QStringLiteral("/2007-01-04")), header + fourth);
    QVERIFY(!QFile::exists(folder + QStringLiteral("/2007-01-03"))); // skipped: empty

    QCOMPARE(exportDiary(_user, QString(), folder, QDate(2007, 1, 1), QDate(2007, 1, 3), false), QString());
    QCOMPARE(read(folder + QStringLiteral("/2007-01-03")), header); // kept without the skip flag
}

void TestCsvExport::failures_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QDate>("first");
    QTest::addColumn<QString>("error");
    QTest::newRow("no days") << QStringLiteral("x.csv") << QString() << QDate(2007, 1, 3)
                             << QStringLiteral("No days in the selected range have any recorded items");
    QTest::newRow("file cannot be opened") << QStringLiteral("missing/x.csv") << QString() << QDate(2007, 1, 2)
                                           << QStringLiteral("Could not open %1/missing/x.csv");
    QTest::newRow("day file cannot be opened") << QString() << QStringLiteral("missing") << QDate(2007, 1, 2)
                                               << QStringLiteral("Could not open %1/missing/2007-01-03 (and possibly other files)");
}

void TestCsvExport::failures()
{
    QFETCH(QString, file);
    QFETCH(QString, folder);
    QFETCH(QDate, first);
    QFETCH(QString, error);
    const QString base = _db.path(QString()).chopped(1);
    const QString fileName = file.isEmpty() ? file : base + QLatin1Char('/') + file;
    const QString folderName = folder.isEmpty() ? folder : base + QLatin1Char('/') + folder;
    const bool skipEmpty = first == QDate(2007, 1, 3);
    QCOMPARE(exportDiary(_user, fileName, folderName, first, QDate(2007, 1, 3), skipEmpty),
             error.contains(QLatin1String("%1")) ? error.arg(base) : error);
    if (!file.isEmpty())
        QVERIFY(!QFile::exists(fileName));
}

QTEST_GUILESS_MAIN(TestCsvExport)
#include "tst_csvexport.moc"
