// Reports of a real diary: the CSV export byte for byte, the figures of a day's summary, and the
// printed diary as a PDF.

#include "db/diarydb.h"
#include "db/userdb.h"
#include "dbfixture.h"
#include "model/dateconversion.h"
#include "model/energy.h"
#include "model/summaryreport.h"
#include "model/unitdescriptor.h"
#include "reports/csvexportdiary.h"
#include "reports/daysummary.h"
#include "reports/diarysheet.h"
#include "reports/pagewriter.h"

#include <QPdfWriter>
#include <QProcess>
#include <QStandardPaths>

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
    void daySummaryFigures_data();
    void daySummaryFigures();
    void printedWeek();
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
    add(QStringLiteral("20070102"), BREAKFAST, QStringLiteral("Toast"), QStringLiteral("slice"), 1,
        {80, 15, 1, 0.5f, 3});
    add(QStringLiteral("20070102"), SNACK_1, QStringLiteral("12\" pizza"), QStringLiteral("slice"), 2.5f,
        {600, 70, 0, -1, 25});
    const int gone = add(QStringLiteral("20070102"), DINNER, QStringLiteral("Deleted"), QStringLiteral("x"),
                         1, {1, 1, 1, 1, 1});
    diary.removeFoodEntry(gone);
    add(QStringLiteral("20070104"), SNACK_3, QStringLiteral("Apple"), QStringLiteral("1 medium"), 1,
        {95, 25, 0.3f, 4.4f, 0.5f});
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

    const QByteArray header =
        "\"Date\",\"Time\",\"Group Type\",\"Group Label\",\"Item Name\",\"Qty\",\"Serving\","
        "\"Calories\",\"Carbs\",\"Fat\",\"Fibre\",\"Protein\"\n";
    const QByteArray second =
        "\"2007-01-02\",\"\",\"Breakfast\",\"\",\"Toast\",\"1.00\",\"slice\",\"80.00\",\"15.00\",\"1.00\","
        "\"0.50\",\"3.00\",\n"
        "\"2007-01-02\",\"\",\"Unknown\",\"\",\"12' "
        "pizza\",\"2.50\",\"slice\",\"600.00\",\"70.00\",\"0.00\",\"\",\"25.00\",\n"
        "\"2007-01-02\",\"\",\"Exercise\",\"\",\"Walking\",\"30.00\",\"minutes\",\"-150.00\",\n";
    const QByteArray fourth = "\"2007-01-04\",\"\",\"Snack\",\"\",\"Apple\",\"1.00\",\"1 "
                              "medium\",\"95.00\",\"25.00\",\"0.30\",\"4.40\",\"0.50\",\n";
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
    QTest::newRow("file cannot be opened")
        << QStringLiteral("missing/x.csv") << QString() << QDate(2007, 1, 2)
        << QStringLiteral("Could not open %1/missing/x.csv");
    QTest::newRow("day file cannot be opened")
        << QString() << QStringLiteral("missing") << QDate(2007, 1, 2)
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

void TestCsvExport::daySummaryFigures_data()
{
    QTest::addColumn<QString>("born");
    QTest::addColumn<QString>("day");       // of the report
    QTest::addColumn<double>("weight");     // the weight in force
    QTest::addColumn<QString>("weighedOn"); // the day the requirement is worked out for; empty: none
    QTest::addColumn<int>("activity");

    // Check-ins: 70 kg on 2007-01-05, a waist without a weight on 2007-01-10. Activity 3 from March
    // only: before it, the first level recorded is the one in force.
    QTest::newRow("the latest weighed check-in") << "19770615"
                                                 << "20070112" << 70.0 << "20070105" << 3;
    QTest::newRow("age on the weighing day") << "19771231"
                                             << "20080102" << 70.0 << "20070105" << 3;
    QTest::newRow("under a year old on the weighing day") << "20070102"
                                                          << "20080105" << 70.0 << "" << 3;
}

void TestCsvExport::daySummaryFigures()
{
    QFETCH(QString, born);
    QFETCH(QString, day);
    QFETCH(double, weight);
    QFETCH(QString, weighedOn);
    QFETCH(int, activity);

    UserProfile profile = UserDB::getUsers().constFirst();
    profile.dob = born;
    profile.sex = 1;
    UserDB::updateUser(profile);
    CheckIn weighed;
    weighed.date = QStringLiteral("20070105");
    weighed.weight = 70;
    CheckIn measured;
    measured.date = QStringLiteral("20070110");
    measured.waist = 80;
    QVERIFY(UserDB::setCheckIn(_user, weighed) && UserDB::setCheckIn(_user, measured));
    QVERIFY(UserDB::setMisc(_user, QStringLiteral("20070301"), 0, activity, -1, QString()));

    const UnitRegistry &units = UnitRegistry::instance();
    SummaryInputs in;
    in.day = DateConversion::toQDate(day);
    in.height = 168;
    in.weight = weight;
    in.waist = 80;
    if (!weighedOn.isEmpty())
        in.requirement = energyRequirement({float(weight), weighedOn, activity, 1, 168.0f, born});
    QCOMPARE(daySummaryReport(_user, in.day),
             summaryReport(in, *units.getUnit(UNIT_ENERGY), *units.getUnit(UNIT_WEIGHT),
                           *units.getUnit(UNIT_MEASUREMENT)));
}

void TestCsvExport::printedWeek()
{
    // A lunch long enough that the day cannot stay on one page.
    const DiaryDB diary;
    for (int i = 0; i < 45; ++i) {
        FoodDiaryItem item;
        item.user_id = _user;
        item.date = QStringLiteral("20070103");
        item.meal = i < 15 ? BREAKFAST : LUNCH;
        item.food_name = QStringLiteral("Rice cake %1").arg(i);
        item.serv_name = QStringLiteral("cake");
        item.setNutrient(ENERGY, 35);
        QVERIFY(diary.addFoodEntry(item));
    }
    // A name longer than its column: the sheet has no tooltip, so the end must be there too.
    FoodDiaryItem oats;
    oats.user_id = _user;
    oats.date = QStringLiteral("20070104");
    oats.meal = BREAKFAST;
    oats.food_name =
        QStringLiteral("Cereals, oats, regular and quick, unenriched, cooked with water (includes "
                       "boiling and microwaving), without salt");
    oats.serv_name = QStringLiteral("cup");
    QVERIFY(diary.addFoodEntry(oats));
    const QString file = _db.path(QStringLiteral("week.pdf"));
    DiarySheet sheet(_user, QDate(2007, 1, 1), QDate(2007, 1, 7));
    {
        QPdfWriter pdf(file);
        PageWriter::useA4(&pdf);
        QVERIFY(sheet.print(&pdf));
    }
    QVERIFY(sheet.pages() >= 2);
    for (const DiarySheet::Block &block : sheet.blocks())
        QVERIFY2(block.firstPage == block.lastPage, qPrintable(block.day.toString() + u' ' + block.name));

    // The words on the pages, as a reader of the file finds them.
    const QString pdftotext = QStandardPaths::findExecutable(QStringLiteral("pdftotext"));
    QVERIFY2(!pdftotext.isEmpty(), "pdftotext is installed with the test tools");
    QProcess reader;
    reader.start(pdftotext, {file, QStringLiteral("-")});
    QVERIFY(reader.waitForFinished(20000));
    const QString text = QString::fromUtf8(reader.readAllStandardOutput());
    for (const QString &expected :
         {DateConversion::longDayName(QDate(2007, 1, 2)), QStringLiteral("Toast"),
          QStringLiteral("Rice cake 44"), QStringLiteral("Walking"), QStringLiteral("without salt"),
          QStringLiteral("Nothing logged."), QStringLiteral("Page %1").arg(sheet.pages())})
        QVERIFY2(text.contains(expected), qPrintable(expected));
}

QTEST_MAIN(TestCsvExport)
#include "tst_csvexport.moc"
