// The brand engine over archives built for each case.

#include "brand/brandengine.h"
#include "brand/tarfilewriter.h"
#include "testsupport.h"

#include <QBuffer>
#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QRegularExpression>

namespace {

using Members = QList<QPair<QString, QByteArray>>;

// Writes the members into a new archive inside dir and returns its path.
QString makeArchive(const QTemporaryDir &dir, const Members &members)
{
    const QString path = dir.filePath(QStringLiteral("brand.dat"));
    QFile out(path);
    if (!out.open(QIODevice::WriteOnly))
        return QString();
    TarFileWriter writer(out);
    int n = 0;
    for (const auto &[name, contents] : members) {
        const QString source = dir.filePath(QStringLiteral("src%1").arg(n++));
        QFile file(source);
        if (!file.open(QIODevice::WriteOnly) || file.write(contents) != contents.size())
            return QString();
        file.close();
        if (!writer.addFile(source, name))
            return QString();
    }
    return path;
}

QByteArray brandXml(const QByteArray &elements)
{
    return "<?xml version=\"1.0\"?>\n<brand>\n" + elements + "\n</brand>\n";
}

QByteArray pngBytes(int scale = 1)
{
    QImage image(4 * scale, 3 * scale, QImage::Format_ARGB32);
    image.fill(Qt::red);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

} // namespace

class TestBrandEngine : public QObject
{
    Q_OBJECT

private:
    BrandEngine &load(const Members &members)
    {
        const QString path = makeArchive(_dir, members);
        if (path.isEmpty() || !BrandEngine::instance().load(path))
            qFatal("cannot build the test archive");
        return BrandEngine::instance();
    }
    QTemporaryDir _dir;

private slots:
    void cleanup() { BrandEngine::release(); }

    void filters_data();
    void filters();
    void typedValues_data();
    void typedValues();
    void laterDefinitionWins();
    void documentsAndWarnings();
    void missingIdsAreFatal_data();
    void missingIdsAreFatal();
    void images();
    void unusableArchives_data();
    void unusableArchives();
    void expandBrandVariables_data();
    void expandBrandVariables();
    void expandUrlVariables_data();
    void expandUrlVariables();
    void secondEngineAsserts();
};

void TestBrandEngine::filters_data()
{
    QTest::addColumn<QByteArray>("attributes");
    QTest::addColumn<bool>("kept");

    QTest::newRow("no filter") << QByteArray() << true;
    QTest::newRow("platform named") << QByteArray("platform=\"windows\"") << false;
    QTest::newRow("platform empty") << QByteArray("platform=\"\"") << true;
    QTest::newRow("platform with empty entry") << QByteArray("platform=\"windows,\"") << true;
    QTest::newRow("platform blank entry") << QByteArray("platform=\"linux, ,mac\"") << true;
    QTest::newRow("product ours") << QByteArray("product=\"tarnwell\"") << true;
    QTest::newRow("product in list with spaces") << QByteArray("product=\"other , tarnwell \"") << true;
    QTest::newRow("product prefix only") << QByteArray("product=\"tarnwells\"") << false;
    QTest::newRow("product other") << QByteArray("product=\"other\"") << false;
    QTest::newRow("both pass") << QByteArray("platform=\"\" product=\"tarnwell\"") << true;
}

void TestBrandEngine::filters()
{
    QFETCH(QByteArray, attributes);
    QFETCH(bool, kept);
    const QString product = QRegularExpression(QStringLiteral("product=\"([^\"]*)\""))
                                .match(QString::fromUtf8(attributes))
                                .captured(1);
    if (!kept && !product.isEmpty() && !attributes.contains("platform=\"windows\"")) {
        QTest::ignoreMessage(QtWarningMsg,
                             qPrintable(QStringLiteral("BrandEngine: Skipping element as it is not flagged for "
                                                       "this product but '%1'")
                                            .arg(product)));
    }
    BrandEngine &brand = load({{QStringLiteral("brand.xml"),
                                brandXml("<string id=\"name\" value=\"x\" " + attributes + "/>")}});
    QCOMPARE(brand.idExists(QStringLiteral("name")), kept);
}

void TestBrandEngine::typedValues_data()
{
    QTest::addColumn<QByteArray>("element");
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("value"); // empty: not entered

    QTest::newRow("string") << QByteArray("<string id=\"v\" value=\"Hello &amp; more\"/>") << "string"
                            << "Hello & more";
    QTest::newRow("string without value") << QByteArray("<string id=\"v\"/>") << "string" << "";
    QTest::newRow("string without id") << QByteArray("<string value=\"x\"/>") << "string" << "";
    QTest::newRow("int") << QByteArray("<int id=\"v\" value=\"-42\"/>") << "int" << "-42";
    QTest::newRow("int unconvertible") << QByteArray("<int id=\"v\" value=\"many\"/>") << "int" << "0";
    QTest::newRow("bool true") << QByteArray("<bool id=\"v\" value=\"true\"/>") << "bool" << "true";
    QTest::newRow("bool TRUE") << QByteArray("<bool id=\"v\" value=\"TRUE\"/>") << "bool" << "true";
    QTest::newRow("bool True") << QByteArray("<bool id=\"v\" value=\"True\"/>") << "bool" << "true";
    QTest::newRow("bool False") << QByteArray("<bool id=\"v\" value=\"False\"/>") << "bool" << "false";
    QTest::newRow("bool yes") << QByteArray("<bool id=\"v\" value=\"yes\"/>") << "bool" << "";
    QTest::newRow("include ignored") << QByteArray("<include id=\"v\" value=\"x\"/>") << "string" << "";
}

void TestBrandEngine::typedValues()
{
    QFETCH(QByteArray, element);
    QFETCH(QString, type);
    QFETCH(QString, value);
    BrandEngine &brand = load({{QStringLiteral("b.xml"), brandXml(element)}});
    const QString id = QStringLiteral("v");
    QCOMPARE(brand.idExists(id), !value.isEmpty());
    if (value.isEmpty())
        return;
    if (type == QLatin1String("string"))
        QCOMPARE(brand.getString(id), value);
    else if (type == QLatin1String("int"))
        QCOMPARE(QString::number(brand.getInt(id)), value);
    else
        QCOMPARE(brand.getBool(id) ? QStringLiteral("true") : QStringLiteral("false"), value);
    QCOMPARE(brand.ids(type == QLatin1String("string") ? BrandEngine::ValueType::String
                       : type == QLatin1String("int")  ? BrandEngine::ValueType::Int
                                                       : BrandEngine::ValueType::Bool),
             QStringList{id});
}

void TestBrandEngine::laterDefinitionWins()
{
    BrandEngine &brand = load({
        {QStringLiteral("b-overlay.xml"), brandXml("<string id=\"name\" value=\"overlay\"/>")},
        {QStringLiteral("a-base.xml"), brandXml("<string id=\"name\" value=\"base\"/>"
                                                "<string id=\"name\" value=\"base again\"/>"
                                                "<int id=\"n\" value=\"1\"/><string id=\"n\" value=\"one\"/>")},
    });
    // Files in name order, elements in document order; tables are separate.
    QCOMPARE(brand.getString(QStringLiteral("name")), QStringLiteral("overlay"));
    QCOMPARE(brand.getInt(QStringLiteral("n")), 1);
    QCOMPARE(brand.getString(QStringLiteral("n")), QStringLiteral("one"));
}

void TestBrandEngine::documentsAndWarnings()
{
    QTest::ignoreMessage(QtWarningMsg, "BrandEngine: Skipping what looks not to be a branding xml file: other.xml");
    QTest::ignoreMessage(QtWarningMsg, "BrandEngine: Skipping what looks not to be a branding xml file: broken.xml");
    QTest::ignoreMessage(QtWarningMsg, "BrandEngine: Unknown tag 'colour' in main.xml");
    QTest::ignoreMessage(QtWarningMsg, "BrandEngine: can't find image file 'images/none.png' in archive");
    BrandEngine &brand = load({
        {QStringLiteral("other.xml"), "<config><string id=\"skipped\" value=\"x\"/></config>"},
        {QStringLiteral("broken.xml"), "<brand><string id=\"broken\" value=\"x\""},
        {QStringLiteral("main.xml"), brandXml("<!-- note --><colour id=\"c\" value=\"red\"/>text"
                                              "<string id=\"kept\" value=\"yes\"/>"
                                              "<image id=\"pic\" fileref=\"images/none.png\"/>")},
        {QStringLiteral("notes.txt"), brandXml("<string id=\"txt\" value=\"x\"/>")},
        {QStringLiteral("upper.XML"), brandXml("<string id=\"upper\" value=\"x\"/>")},
    });
    QVERIFY(brand.idExists(QStringLiteral("kept")));
    QVERIFY(brand.idExists(QStringLiteral("pic"))); // entered despite the warning
    for (const char *id : {"skipped", "broken", "c", "txt", "upper"})
        QVERIFY2(!brand.idExists(QLatin1String(id)), id);
}

void TestBrandEngine::missingIdsAreFatal_data()
{
    QTest::addColumn<QString>("type");
    QTest::newRow("bool") << QStringLiteral("bool");
    QTest::newRow("int") << QStringLiteral("int");
    QTest::newRow("string") << QStringLiteral("string");
    QTest::newRow("image") << QStringLiteral("image");
}

void TestBrandEngine::missingIdsAreFatal()
{
    QFETCH(QString, type);
    // "s" is a string: asking for it as another type is just as missing.
    BrandEngine &brand = load({{QStringLiteral("b.xml"), brandXml("<string id=\"s\" value=\"x\"/>")}});
    const QString id = type == QLatin1String("string") ? QStringLiteral("absent") : QStringLiteral("s");
    const QString message = QStringLiteral("Couldn't find id '%1' in brand").arg(id);
    if (type == QLatin1String("bool"))
        LM_VERIFY_FATAL(brand.getBool(id), message);
    else if (type == QLatin1String("int"))
        LM_VERIFY_FATAL(brand.getInt(id), message);
    else if (type == QLatin1String("string"))
        LM_VERIFY_FATAL(brand.getString(id), message);
    else
        LM_VERIFY_FATAL(brand.getPixmap(id), message);
}

void TestBrandEngine::images()
{
    QTest::ignoreMessage(QtWarningMsg, "BrandEngine: can't find image file 'gone.png' in archive");
    BrandEngine &brand = load({
        {QStringLiteral("b.xml"), brandXml("<image id=\"logo\" fileref=\"img/logo.png\"/>"
                                           "<image id=\"empty\" fileref=\"empty.png\"/>"
                                           "<image id=\"gone\" fileref=\"gone.png\"/>")},
        {QStringLiteral("img/logo.png"), pngBytes()},
        {QStringLiteral("img/logo@2x.png"), pngBytes(2)},
        {QStringLiteral("empty.png"), QByteArray()},
    });
    // Dense screens get the picture made for them, at the same size on screen.
    for (const qreal ratio : {1.0, 2.0, 3.0}) {
        const QPixmap logo = brand.getPixmap(QStringLiteral("logo"), ratio);
        QCOMPARE(logo.deviceIndependentSize(), QSizeF(4, 3));
        QCOMPARE(logo.devicePixelRatio(), ratio > 1 ? 2.0 : 1.0);
    }
    QCOMPARE(brand.getImageFile(QStringLiteral("logo")), QStringLiteral("img/logo.png"));
    QCOMPARE(brand.getPixmap(QStringLiteral("logo")).size(), QSize(4, 3));
    std::unique_ptr<QPixmap> owned(brand.getNewPixmap(QStringLiteral("logo")));
    QCOMPARE(owned->size(), QSize(4, 3));
    QCOMPARE(brand.ids(BrandEngine::ValueType::Image),
             (QStringList{QStringLiteral("empty"), QStringLiteral("gone"), QStringLiteral("logo")}));
    LM_VERIFY_FATAL(brand.getPixmap(QStringLiteral("empty")),
                    "Couldn't find image file 'empty.png' for brand id 'empty'");
    LM_VERIFY_FATAL(brand.getNewPixmap(QStringLiteral("gone")), "Couldn't find image file 'gone.png' for brand id 'gone'");
}

void TestBrandEngine::unusableArchives_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("exists");
    QTest::newRow("missing") << QByteArray() << false;
    QTest::newRow("empty") << QByteArray() << true;
    QTest::newRow("not a tar") << QByteArray("<brand><string id=\"x\" value=\"y\"/></brand>") << true;
    QTest::newRow("random bytes") << QByteArray(3000, '\xff') << true;
}

void TestBrandEngine::unusableArchives()
{
    QFETCH(QByteArray, bytes);
    QFETCH(bool, exists);
    const QString path = _dir.filePath(QStringLiteral("unusable.dat"));
    QFile::remove(path);
    if (exists) {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(bytes);
    }
    BrandEngine &brand = BrandEngine::instance();
    QCOMPARE(brand.load(path), exists);
    for (auto type : {BrandEngine::ValueType::Bool, BrandEngine::ValueType::Int, BrandEngine::ValueType::String,
                      BrandEngine::ValueType::Image})
        QVERIFY(brand.ids(type).isEmpty());
    LM_VERIFY_ASSERT(brand.load(QString()), "filename");
}

void TestBrandEngine::expandBrandVariables_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expanded");

    QTest::newRow("no variable") << QStringLiteral("plain $ {text} $") << QStringLiteral("plain $ {text} $");
    QTest::newRow("one") << QStringLiteral("Welcome to ${APP_NAME}!") << QStringLiteral("Welcome to Tarnwell Diary!");
    QTest::newRow("mixed case, every occurrence") << QStringLiteral("${App_Name} / ${App_Name}")
                                                  << QStringLiteral("Tarnwell Diary / Tarnwell Diary");
    QTest::newRow("nested value") << QStringLiteral("${GREETING}")
                                  << QStringLiteral("Hello from Tarnwell Diary");
    // Values that name themselves stop at the stated bounds instead of growing without end.
    QTest::newRow("refers to itself") << QStringLiteral("${LOOP}")
                                      << QString(BrandEngine::kMaxExpansionRounds, u'a') + QStringLiteral("${loop}");
    QTest::newRow("doubles itself") << QStringLiteral("${twice}") << QStringLiteral("${twice}").repeated(16384);
}

void TestBrandEngine::expandBrandVariables()
{
    QFETCH(QString, text);
    QFETCH(QString, expanded);
    BrandEngine &brand = load({{QStringLiteral("b.xml"), brandXml("<string id=\"app_name\" value=\"Tarnwell Diary\"/>"
                                                                  "<string id=\"greeting\" value=\"Hello from "
                                                                  "${APP_NAME}\"/>"
                                                                  "<string id=\"loop\" value=\"a${loop}\"/>"
                                                                  "<string id=\"twice\" value=\"${twice}${twice}\"/>")}});
    QCOMPARE(brand.expandBrandVariables(text), expanded);
    LM_VERIFY_FATAL(brand.expandBrandVariables(QStringLiteral("${Nope}")), "Couldn't find id 'nope' in brand");
}

void TestBrandEngine::expandUrlVariables_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("password");
    QTest::addColumn<QString>("expanded"); // empty: the account error
    const QString none;
    const QString md5 = QStringLiteral("5f4dcc3b5aa765d61d8327deb882cf99"); // "password"

    QTest::newRow("fixed values")
        << QStringLiteral("http://h/${PLATFORM}/${PRODUCT}/${VERSION}") << none << none
        << QStringLiteral("http://h/windows/tarnwell/4.1.0");
    QTest::newRow("account") << QStringLiteral("u=${USERNAME}&p=${PWHASH}") << QStringLiteral("ann")
                             << QStringLiteral("password") << QStringLiteral("u=ann&p=") + md5;
    QTest::newRow("user name encoded") << QStringLiteral("u=${USERNAME}&p=${PWHASH}") << QStringLiteral("al ice&x#1")
                                       << QStringLiteral("password") << QStringLiteral("u=al%20ice%26x%231&p=") + md5;
    QTest::newRow("user name is no brand variable")
        << QStringLiteral("u=${USERNAME_OPTIONAL}") << QStringLiteral("${web_address}") << none
        << QStringLiteral("u=%24%7Bweb_address%7D");
    QTest::newRow("no account") << QStringLiteral("u=${USERNAME}") << none << none << none;
    QTest::newRow("user without password") << QStringLiteral("p=${PWHASH}") << QStringLiteral("ann") << none
                                           << none;
    QTest::newRow("optional, missing") << QStringLiteral("u=${USERNAME_OPTIONAL}&p=${PWHASH_OPTIONAL}") << none
                                       << none << QStringLiteral("u=&p=");
    QTest::newRow("optional, set") << QStringLiteral("p=${PWHASH_OPTIONAL}") << QStringLiteral("ann")
                                   << QStringLiteral("password") << QStringLiteral("p=") + md5;
    QTest::newRow("content dir") << QStringLiteral("${CONTENT_DIR}static.db") << none << none
                                 << QStringLiteral("file:///opt/tarnwell/content/static.db");
    QTest::newRow("brand value last") << QStringLiteral("${WEB_ADDRESS}x?v=${VERSION}") << none << none
                                      << QStringLiteral("http://diary.example/x?v=4.1.0");
}

void TestBrandEngine::expandUrlVariables()
{
    QFETCH(QString, url);
    QFETCH(QString, user);
    QFETCH(QString, password);
    QFETCH(QString, expanded);
    BrandEngine &brand = load({{QStringLiteral("b.xml"),
                                brandXml("<string id=\"brand_id\" value=\"Tarnwell\"/>"
                                         "<string id=\"web_address\" value=\"http://diary.example/\"/>")}});
    QString result = url;
    const QString error = brand.expandUrlVariables(result, {user, password, QStringLiteral("/opt/tarnwell/content/")});
    if (expanded.isEmpty()) {
        QVERIFY(error.startsWith(QStringLiteral("If you have a paid Tarnwell membership\n(a separate purchase")));
        QVERIFY(error.endsWith(QStringLiteral("and fill out the http://diary.example/ login box.")));
        QVERIFY(!error.contains(QLatin1String("${")));
        QCOMPARE(result, url); // untouched
    } else {
        QCOMPARE(error, QString());
        QCOMPARE(result, expanded);
    }
}

void TestBrandEngine::secondEngineAsserts()
{
    BrandEngine &first = BrandEngine::instance();
    QCOMPARE(&BrandEngine::instance(), &first);
    BrandEngine::release();
    QVERIFY(!BrandEngine::instance().idExists(QStringLiteral("anything"))); // a fresh, empty engine
}

QTEST_MAIN(TestBrandEngine)
#include "tst_brandengine.moc"
