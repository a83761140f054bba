// The reference database read back: browse, lookup, word search and refusal of damaged files.

#include "app/lmsettings.h"
#include "staticdb/staticdb.h"
#include "staticdb/staticdbwriter.h"
#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QtEndian>

#include <memory>

namespace {

StaticDbNode node(bool category, quint32 id, const char *name, std::vector<StaticDbNode> children = {})
{
    StaticDbNode n;
    n.category = category;
    n.id = id;
    n.name = name;
    n.children = std::move(children);
    if (!category)
        n.payload = StaticDbWriter::exercisePayload(3.5f);
    return n;
}

// Names of the shown records in table order, without the nameless root.
QStringList shown(const IndexedDB &db, quint8 on = FLAG_SHOWN)
{
    QStringList names;
    std::unique_ptr<BrowsableDBIterator> it(db.all(on, 0));
    while (const IndexEntry *e = it->next()) {
        if (db.nameLength(e) > 0)
            names.append(db.nameText(e));
    }
    return names;
}

QStringList list(std::initializer_list<const char *> names)
{
    QStringList result;
    for (const char *name : names)
        result.append(QString::fromUtf8(name));
    return result;
}

QStringList sorted(QStringList names)
{
    names.sort();
    return names;
}

void put32(QByteArray &out, quint32 value)
{
    char bytes[4];
    qToBigEndian(value, bytes);
    out.append(bytes, 4);
}

// A file whose chunks 1 and 2 are one chain: the root, depth categories named "Level" each
// holding the next, and at the bottom the item "Apple pie". Made byte by byte: a tree of
// StaticDbNodes that deep could not even be destroyed without exhausting the stack.
QByteArray chain(quint32 depth)
{
    const quint32 count = depth + 3; // the root, the levels, the item, the end record
    QByteArray table;
    QByteArray names;
    for (quint32 i = 0; i <= depth; ++i) {
        put32(table, 0x80000000u | i);
        put32(table, quint32(names.size()));
        put32(table, i + 1);
        put32(table, i < depth ? 0x00010000 : 0x00000001);
        names += i == 0 ? QByteArray() : QByteArray("Level");
        names += '\0';
    }
    put32(table, 77);
    put32(table, quint32(names.size()));
    put32(table, 0);
    put32(table, 0);
    names += "Apple pie";
    names += '\0';
    table += QByteArray(4, '\0');
    put32(table, quint32(names.size()));
    table += QByteArray(8, '\0');

    QByteArray file = QByteArray("Database subject to copyright.\x1a\0", 32);
    put32(file, 1);
    file += "2016-05-01";
    file += QByteArray(18, '\0');
    const quint32 chunk = 64 + 3 * 8;
    for (quint32 id : {1u, 2u}) {
        put32(file, id);
        put32(file, chunk);
    }
    file += QByteArray(8, '\0');
    put32(file, count);
    put32(file, 16);
    put32(file, 16 + quint32(table.size()));
    put32(file, 16 + quint32(table.size() + names.size()));
    file += table;
    file += names;
    file += StaticDbWriter::exercisePayload(3.5f);
    return file;
}

} // namespace

class TestStaticDb : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<TemporaryHome> _home;
    QString _file;

    void writeDatabase(const QByteArray &bytes)
    {
        QFile file(_file);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(bytes);
    }
    static QByteArray sample(StaticDbWriter::Layout layout = StaticDbWriter::Layout::BreadthFirst)
    {
        StaticDbNode quiet = node(false, 7, "Apple sauce, (hidden name)");
        quiet.flags = FLAG_NOT_SEARCHED;
        StaticDbNode root = node(true, 0, "",
                                 {
                                     node(true, 1, "Fruits",
                                          {node(true, 2, "Apples",
                                                {node(false, 9003, "Apples, raw, with skin"),
                                                 node(false, 9004, "Apples, raw, without skin"), quiet}),
                                           node(false, 9252, "Pears, raw")}),
                                     node(true, 3, "Baby foods",
                                          {node(false, 3116, "Babyfood, apple-banana juice"),
                                           node(false, 2, "Babyfood, ABC cereal")}),
                                 });
        StaticDbWriter writer(QDate(2016, 5, 1), layout);
        writer.addChunk(1, root);
        writer.addChunk(2, node(true, 0, "", {node(false, 1015, "Bicycling, leisure")}));
        return writer.build();
    }

private slots:
    void init()
    {
        _home = std::make_unique<TemporaryHome>();
        LmSettings::resetForTesting();
        LmSettings::setResourcePath(_home->path());
        QDir().mkpath(LmSettings::contentPath());
        _file = LmSettings::contentPath() + QStringLiteral("static.db");
        writeDatabase(sample());
    }
    void cleanup()
    {
        LmSettings::resetForTesting();
        _home.reset();
    }

    void browseAndLookup();
    void search_data();
    void search();
    void queryLimits();
    void partialMatchAtTheStart();
    void deepNesting();
    void damagedFiles_data();
    void damagedFiles();
};

void TestStaticDb::browseAndLookup()
{
    StaticDB foods(1);
    StaticDB exercises(2); // the same mapping, counted
    QCOMPARE(foods.creationDate(), QStringLiteral("2016-05-01"));
    QCOMPARE(shown(exercises), QStringList{QStringLiteral("Bicycling, leisure")});

    std::unique_ptr<BrowsableDBIterator> top(foods.children(0, FLAG_SHOWN, 0));
    QCOMPARE(foods.nameText(top->next()), QStringLiteral("Fruits"));
    QCOMPARE(foods.nameText(top->next()), QStringLiteral("Baby foods"));
    QVERIFY(!top->next());
    std::unique_ptr<BrowsableDBIterator> fruits(foods.items(1));
    QCOMPARE(foods.nameText(fruits->next()), QStringLiteral("Pears, raw")); // items only
    QVERIFY(!fruits->next());
    QVERIFY(!foods.children(9003, FLAG_SHOWN, 0));
    QVERIFY(foods.hasChildren(2, FLAG_SHOWN, 0));

    // Category 2 and item 2 are different records.
    QCOMPARE(foods.nameText(foods.lookup(2, true)), QStringLiteral("Apples"));
    QCOMPARE(foods.nameText(foods.lookup(2, false)), QStringLiteral("Babyfood, ABC cereal"));
    QVERIFY(!foods.lookup(9003, true));
    const IndexEntry *leaf = exercises.lookup(1015, false);
    QVERIFY(leaf && exercises.payload(leaf).size() >= 5);
    QCOMPARE(exercises.payload(leaf).front(), '\x01');
    LM_VERIFY_ASSERT(BrowsableDBIterator(nullptr, nullptr, 0, 1, 1),
                     "(flagsRequiredOn & flagsRequiredOff) == 0");
}

void TestStaticDb::search_data()
{
    QTest::addColumn<QString>("query");
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<QStringList>("expanded");

    QTest::newRow("two words along the path")
        << "apple raw" << list({"Fruits", "Apples", "Apples, raw, with skin", "Apples, raw, without skin"})
        << list({"Fruits", "Apples"});
    QTest::newRow("any case") << "ABC" << list({"Baby foods", "Babyfood, ABC cereal"})
                              << list({"Baby foods"});
    QTest::newRow("a category's name shows its subtree, not expanded")
        << "fruits"
        << list({"Fruits", "Apples", "Pears, raw", "Apples, raw, with skin", "Apples, raw, without skin",
                 "Apple sauce, (hidden name)"})
        << QStringList();
    QTest::newRow("name not searched: only through its ancestors")
        << "sauce" << QStringList() << QStringList();
    // Top-level categories without the word match the empty inclusion mask as a whole.
    QTest::newRow("exclusion only") << "-apple"
                                    << list({"Fruits", "Baby foods", "Apples", "Pears, raw",
                                             "Babyfood, apple-banana juice", "Babyfood, ABC cereal",
                                             "Apples, raw, with skin", "Apples, raw, without skin",
                                             "Apple sauce, (hidden name)"})
                                    << QStringList();
    QTest::newRow("excluded category hides its subtree")
        << "raw -apples" << list({"Fruits", "Pears, raw"}) << list({"Fruits"});
    QTest::newRow("inclusion and exclusion")
        << "apple -without"
        << list({"Fruits", "Baby foods", "Apples", "Babyfood, apple-banana juice", "Apples, raw, with skin",
                 "Apples, raw, without skin", "Apple sauce, (hidden name)"})
        << list({"Fruits", "Baby foods"});
    QTest::newRow("beyond Latin-1 matches nothing")
        << QStringLiteral("app\u0101") << QStringList() << QStringList();
}

void TestStaticDb::search()
{
    QFETCH(QString, query);
    QFETCH(QStringList, names);
    QFETCH(QStringList, expanded);
    // The runs of a table may come in any order: depth first, the same search finds the same.
    QVERIFY(sample(StaticDbWriter::Layout::DepthFirst) != sample());
    for (const auto layout : {StaticDbWriter::Layout::BreadthFirst, StaticDbWriter::Layout::DepthFirst}) {
        writeDatabase(sample(layout));
        StaticDB foods(1);
        QVERIFY(foods.search(query, false, 0));
        QCOMPARE(sorted(shown(foods)), sorted(names));
        QCOMPARE(sorted(shown(foods, FLAG_SHOWN | FLAG_EXPANDED | FLAG_CATEGORY)), sorted(expanded));

        foods.reset();
        QCOMPARE(shown(foods).size(), 9);
    }
}

void TestStaticDb::queryLimits()
{
    StaticDB foods(1);
    QVERIFY(foods.search(QStringLiteral("pears"), false, 0));
    const QStringList pears = shown(foods);
    QVERIFY(!foods.search(QStringLiteral("ab a"), false, 0)); // longest word too short: flags kept
    QCOMPARE(shown(foods), pears);
    QStringList words(31, QStringLiteral("raw"));
    QVERIFY(foods.search(words.join(u' '), false, 0));
    const QStringList raw = shown(foods);
    QCOMPARE(raw.size(), 5);
    words.append(QStringLiteral("raw"));
    QVERIFY(!foods.search(words.join(u' '), false, 0));
    QVERIFY(foods.search(QStringLiteral("apple"), true, 0)); // suppressed: no walk
    QCOMPARE(shown(foods), raw);
    QVERIFY(foods.search(QStringLiteral("apple"), false, 0x04)); // nothing carries filter 0x04
    QVERIFY(shown(foods).isEmpty());
}

void TestStaticDb::partialMatchAtTheStart()
{
    // "Mille" ends like "apple" begins to end: the skip after that mismatch must not run backwards,
    // neither for a category's name nor in the items' names scanned together.
    StaticDbWriter writer(QDate(2016, 5, 1));
    writer.addChunk(1, node(true, 0, "",
                            {node(true, 1, "Millet, puffed", {node(false, 1, "Mille-feuille")}),
                             node(true, 2, "Mille-feuille, apple", {node(false, 2, "Tart")}),
                             node(false, 3, "Millet, puffed"), node(false, 4, "Mille-feuille, apple")}));
    writeDatabase(writer.build());
    StaticDB foods(1);
    QVERIFY(foods.search(QStringLiteral("apple"), false, 0));
    QCOMPARE(shown(foods), list({"Mille-feuille, apple", "Mille-feuille, apple", "Tart"}));
}

void TestStaticDb::deepNesting()
{
    // How deep categories nest is the file's to say; no search may run out of stack over it.
    constexpr quint32 depth = 1000000;
    writeDatabase(chain(depth));
    StaticDB foods(1);
    const auto shownCount = [&foods] {
        std::unique_ptr<BrowsableDBIterator> it(foods.all(FLAG_SHOWN, 0));
        quint32 n = 0;
        while (it->next())
            ++n;
        return n;
    };
    const IndexEntry *top = foods.lookup(1, true);
    const IndexEntry *pie = foods.lookup(77, false);
    QVERIFY(foods.search(QStringLiteral("apple"), false, 0));
    QCOMPARE(shownCount(), depth + 2);
    QCOMPARE(foods.flags(top) & (FLAG_SHOWN | FLAG_EXPANDED), FLAG_SHOWN | FLAG_EXPANDED);
    QVERIFY(foods.flags(pie) & FLAG_SHOWN);
    QVERIFY(foods.search(QStringLiteral("apple -level"), false, 0));
    QCOMPARE(shownCount(), 1u);                               // the root alone
    QVERIFY(foods.search(QStringLiteral("level"), false, 0)); // the top category shows all below
    QCOMPARE(shownCount(), depth + 2);
    QCOMPARE(foods.flags(top) & FLAG_EXPANDED, 0);
    QVERIFY(foods.search(QStringLiteral("pie"), false, 0x04)); // the whole chain fails the filter
    QCOMPARE(shownCount(), 1u);
}

void TestStaticDb::damagedFiles_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<quint32>("chunk");
    QTest::addColumn<QString>("error");
    const QString bad = QStringLiteral(
        "Static food/exercise database is corrupt (bad header). Please reinstall the software.");
    const QByteArray good = sample();

    QTest::newRow("missing chunk") << good << 3u
                                   << QStringLiteral(
                                          "Static food/exercise database is corrupt (missing chunk). "
                                          "Please reinstall the software.");
    QByteArray magic = good;
    magic[0] = 'd';
    QTest::newRow("magic") << magic << 1u << bad;
    QByteArray version = good;
    version[35] = 2;
    QTest::newRow("version") << version << 1u << bad;
    QTest::newRow("truncated") << good.left(good.size() / 2) << 2u << bad;
    QTest::newRow("header only") << good.left(40) << 1u << bad;
    QByteArray count = good;
    count[88] = '\x7f'; // record count of chunk 1 far beyond the file
    QTest::newRow("record count") << count << 1u << bad;
    // Records: 0 root, 1 Fruits, 2 Baby foods, 3 Apples, 4 Pears, 5-6 baby foods, 7-9 apples.
    QByteArray cycle = good;
    cycle[88 + 16 + 16 + 11] = 0; // Fruits' children start at record 0: a cycle through the root
    QTest::newRow("child run") << cycle << 1u << bad;
    QByteArray shared = good;
    shared[88 + 16 + 32 + 11] = 7; // Baby foods' run is Apples' run too: one subtree in two places
    QTest::newRow("shared run") << shared << 1u << bad;
    QTest::newRow("empty file") << QByteArray() << 1u
                                << QStringLiteral("Couldn't load food/exercise database %1");
}

void TestStaticDb::damagedFiles()
{
    QFETCH(QByteArray, bytes);
    QFETCH(quint32, chunk);
    QFETCH(QString, error);
    writeDatabase(bytes);
    bool failed = false;
    StaticDB db(chunk, &failed);
    QVERIFY(failed);
    QCOMPARE(db.errorString(), error.contains(QLatin1String("%1")) ? error.arg(_file) : error);
    LM_VERIFY_FATAL(StaticDB second{chunk}, db.errorString());
}

QTEST_GUILESS_MAIN(TestStaticDb)
#include "tst_staticdb.moc"
