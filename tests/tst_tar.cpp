// Tar archives: the exact bytes we write, and reading ours and the system tar's.

#include "brand/tarfilereader.h"
#include "brand/tarfilewriter.h"
#include "testsupport.h"

#include <QBuffer>
#include <QDateTime>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>

namespace {

// A device that accepts a fixed number of bytes, then fails: -1, or a short count.
class FailingDevice : public QIODevice
{
public:
    FailingDevice(qint64 capacity, bool shortWrite)
        : _capacity(capacity)
        , _shortWrite(shortWrite)
    {
        open(QIODevice::WriteOnly);
    }
    QByteArray data;

protected:
    qint64 readData(char *, qint64) override { return -1; }
    qint64 writeData(const char *bytes, qint64 size) override
    {
        const qint64 room = _capacity - data.size();
        if (room >= size) {
            data.append(bytes, size);
            return size;
        }
        if (!_shortWrite || room <= 0)
            return -1;
        data.append(bytes, room);
        return room;
    }

private:
    qint64 _capacity;
    bool _shortWrite;
};

QString writeFile(const QTemporaryDir &dir, const QString &name, const QByteArray &contents)
{
    const QString path = dir.filePath(name);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(contents) != contents.size())
        return QString();
    return path;
}

QByteArray field(const QByteArray &block, int offset, int length)
{
    return block.mid(offset, length);
}

} // namespace

class TestTar : public QObject
{
    Q_OBJECT

private slots:
    void headerLayout();
    void memberSizes_data();
    void memberSizes();
    void nameLength_data();
    void nameLength();
    void writeFailures_data();
    void writeFailures();
    void missingSourceWritesNothing();
    void roundTrip();
    void systemTarArchives_data();
    void systemTarArchives();
    void lenientSize_data();
    void lenientSize();
    void damagedArchives_data();
    void damagedArchives();
    void listPatterns_data();
    void listPatterns();
};

void TestTar::headerLayout()
{
    QTemporaryDir dir;
    const QString source = writeFile(dir, QStringLiteral("hello.txt"), "hello, tar\n");
    QVERIFY(!source.isEmpty());
    const QDateTime mtime = QDateTime::fromSecsSinceEpoch(1234567890);
    QFile touched(source);
    QVERIFY(touched.open(QIODevice::ReadWrite));
    QVERIFY(touched.setFileTime(mtime, QFileDevice::FileModificationTime));
    touched.close();

    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    {
        TarFileWriter writer(buffer);
        QVERIFY(writer.addFile(source, QStringLiteral("docs/hello.txt")));
        QVERIFY(!writer.error());
        QCOMPARE(writer.bytesWritten(), 1024);
    }
    const QByteArray archive = buffer.data();
    QCOMPARE(archive.size(), 512 + 512 + 1024);

    const QByteArray header = archive.left(512);
    QCOMPARE(field(header, 0, 100), QByteArray("docs/hello.txt").leftJustified(100, '\0'));
    QCOMPARE(field(header, 100, 8), QByteArray("0100600\0", 8));
    QCOMPARE(field(header, 108, 8), QByteArray("0000000\0", 8));
    QCOMPARE(field(header, 116, 8), QByteArray("0000000\0", 8));
    QCOMPARE(field(header, 124, 12), QByteArray("00000000013\0", 12));
    QCOMPARE(field(header, 136, 12), QByteArray("11145401322\0", 12));
    QCOMPARE(header.at(156), '0');
    QCOMPARE(field(header, 157, 355), QByteArray(355, '\0'));

    // Checksum: every header byte, the checksum field counted as eight spaces.
    unsigned sum = 0;
    for (int i = 0; i < 512; ++i)
        sum += (i >= 148 && i < 156) ? ' ' : static_cast<unsigned char>(header.at(i));
    QCOMPARE(field(header, 148, 8), QByteArray::number(sum, 8).rightJustified(6, '0') + QByteArray("\0 ", 2));

    QCOMPARE(archive.mid(512, 11), QByteArray("hello, tar\n"));
    QCOMPARE(archive.mid(523), QByteArray(512 - 11 + 1024, '\0')); // padding, then the end marker
}

void TestTar::memberSizes_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<int>("archiveSize");

    QTest::newRow("empty file: header only") << 0 << 512 + 1024;
    QTest::newRow("one byte") << 1 << 512 + 512 + 1024;
    QTest::newRow("exactly one block, no padding") << 512 << 512 + 512 + 1024;
    QTest::newRow("one block and a byte") << 513 << 512 + 1024 + 1024;
    QTest::newRow("more than one copy chunk") << 40000 << 512 + 40448 + 1024;
}

void TestTar::memberSizes()
{
    QFETCH(int, size);
    QFETCH(int, archiveSize);
    QTemporaryDir dir;
    QByteArray contents(size, '\0');
    for (int i = 0; i < size; ++i)
        contents[i] = char('a' + i % 26);
    const QString source = writeFile(dir, QStringLiteral("member"), contents);

    const QString archivePath = dir.filePath(QStringLiteral("out.tar"));
    QFile out(archivePath);
    QVERIFY(out.open(QIODevice::WriteOnly));
    {
        TarFileWriter writer(out);
        QVERIFY(writer.addFile(source, QStringLiteral("member")));
    }
    out.close();
    QCOMPARE(QFileInfo(archivePath).size(), qint64(archiveSize));

    TarFileReader reader;
    QVERIFY(reader.open(archivePath));
    QCOMPARE(reader.read(QStringLiteral("member")), contents);
}

void TestTar::nameLength_data()
{
    QTest::addColumn<int>("length");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("99 characters") << 99 << true;
    QTest::newRow("100 characters") << 100 << false;
}

void TestTar::nameLength()
{
    QFETCH(int, length);
    QFETCH(bool, accepted);
    QTemporaryDir dir;
    const QString source = writeFile(dir, QStringLiteral("f"), "x");
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    {
        TarFileWriter writer(buffer);
        QCOMPARE(writer.addFile(source, QString(length, QLatin1Char('n'))), accepted);
        QString text;
        QCOMPARE(writer.error(&text), !accepted);
        if (!accepted) {
            QCOMPARE(text, QStringLiteral("TarFileWriter error - Contents file name exceeds 99 characters"));
            QCOMPARE(writer.bytesWritten(), -1);
            QVERIFY(!writer.addFile(source, QStringLiteral("short"))); // failed for good
        }
    }
    // A failed writer leaves no member and no end marker behind.
    QCOMPARE(buffer.data().size(), accepted ? 512 + 512 + 1024 : 0);
}

void TestTar::writeFailures_data()
{
    QTest::addColumn<qint64>("capacity");
    QTest::addColumn<bool>("shortWrite");
    QTest::addColumn<QString>("message");

    QTest::newRow("-1 on the header") << qint64(0) << false
                                      << QStringLiteral("TarFileWriter error - TarFileWriter::_writeData - "
                                                        "_ioDevice.writeBlock returned -1 (fatal error)");
    QTest::newRow("short header") << qint64(100) << true
                                  << QStringLiteral("TarFileWriter error - _ioDevice.writeBlock only wrote 100 of "
                                                    "257 bytes");
    QTest::newRow("short padding") << qint64(300) << true
                                   << QStringLiteral("TarFileWriter error - _ioDevice.writeBlock only wrote 43 of "
                                                     "255 bytes");
    QTest::newRow("short data") << qint64(600) << true
                                << QStringLiteral("TarFileWriter error - _ioDevice.writeBlock only wrote 88 of "
                                                  "1000 bytes");
}

void TestTar::writeFailures()
{
    QFETCH(qint64, capacity);
    QFETCH(bool, shortWrite);
    QFETCH(QString, message);
    QTemporaryDir dir;
    const QString source = writeFile(dir, QStringLiteral("f"), QByteArray(1000, 'x'));
    FailingDevice device(capacity, shortWrite);
    {
        TarFileWriter writer(device);
        QVERIFY(!writer.addFile(source, QStringLiteral("f")));
        QString text;
        QVERIFY(writer.error(&text));
        QCOMPARE(text, message);
    }
    QCOMPARE(device.data.size(), capacity); // nothing more after the failure, no end marker
}

void TestTar::missingSourceWritesNothing()
{
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    {
        TarFileWriter writer(buffer);
        QVERIFY(!writer.addFile(QStringLiteral("/nonexistent/file")));
        QVERIFY(!writer.error()); // an unreadable source does not fail the writer
    }
    QCOMPARE(buffer.data(), QByteArray(1024, '\0'));
}

void TestTar::roundTrip()
{
    QTemporaryDir dir;
    const QList<QPair<QString, QByteArray>> members = {
        {QStringLiteral("b.xml"), "<brand/>"},
        {QStringLiteral("a/empty"), QByteArray()},
        {QStringLiteral("images/x.png"), QByteArray(3000, '\x89')},
        {QStringLiteral("c.txt"), "third"},
        {QString::fromLatin1("caf\xe9.xml"), "latin-1 name"}, // an 8-bit name, byte for byte
    };
    const QString archivePath = dir.filePath(QStringLiteral("round.tar"));
    QFile out(archivePath);
    QVERIFY(out.open(QIODevice::WriteOnly));
    {
        TarFileWriter writer(out);
        int n = 0;
        for (const auto &[name, contents] : members)
            QVERIFY(writer.addFile(writeFile(dir, QString::number(n++), contents), name));
        // A second member of the same name: the first one stays in the catalogue.
        QVERIFY(writer.addFile(writeFile(dir, QStringLiteral("dup"), "second"), QStringLiteral("c.txt")));
    }
    out.close();

    TarFileReader reader;
    QVERIFY(reader.open(archivePath));
    const QStringList listed = reader.list(QStringLiteral(".*"));
    QCOMPARE(listed, (QStringList{QStringLiteral("a/empty"), QStringLiteral("b.xml"), QStringLiteral("c.txt"),
                                  QString::fromLatin1("caf\xe9.xml"), QStringLiteral("images/x.png")}));
    for (const auto &[name, contents] : members) {
        QCOMPARE(reader.catalogue().at(name.toLatin1()).size, qint64(contents.size()));
        QCOMPARE(reader.read(listed.at(listed.indexOf(name))), contents);
    }
    QCOMPARE(reader.read(QStringLiteral("not/there")), QByteArray());
}

void TestTar::systemTarArchives_data()
{
    QTest::addColumn<QString>("format");
    QTest::newRow("ustar") << QStringLiteral("ustar");
    QTest::newRow("gnu") << QStringLiteral("gnu");
}

void TestTar::systemTarArchives()
{
    QFETCH(QString, format);
    const QString tar = QStandardPaths::findExecutable(QStringLiteral("tar"));
    if (tar.isEmpty())
        QSKIP("no tar on this machine");
    QTemporaryDir dir;
    QVERIFY(QDir(dir.path()).mkpath(QStringLiteral("in/images")));
    writeFile(dir, QStringLiteral("in/brand.xml"), "<brand><string id=\"a\" value=\"b\"/></brand>");
    writeFile(dir, QStringLiteral("in/images/big.bin"), QByteArray(70000, 'z'));
    writeFile(dir, QStringLiteral("in/zero"), QByteArray());

    QProcess process;
    process.setWorkingDirectory(dir.filePath(QStringLiteral("in")));
    process.start(tar, {QStringLiteral("--format=") + format, QStringLiteral("-cf"), dir.filePath(QStringLiteral("t.tar")),
                        QStringLiteral("brand.xml"), QStringLiteral("images/big.bin"), QStringLiteral("zero")});
    QVERIFY(process.waitForFinished(30000));
    QCOMPARE(process.exitCode(), 0);

    TarFileReader reader;
    QVERIFY(reader.open(dir.filePath(QStringLiteral("t.tar"))));
    QCOMPARE(reader.list(QStringLiteral(".*xml")), QStringList{QStringLiteral("brand.xml")});
    QCOMPARE(reader.read(QStringLiteral("images/big.bin")), QByteArray(70000, 'z'));
    QCOMPARE(reader.read(QStringLiteral("zero")), QByteArray());
    QVERIFY(reader.catalogue().count("zero"));
}

void TestTar::lenientSize_data()
{
    QTest::addColumn<QByteArray>("fieldText");
    QTest::addColumn<qint64>("value");

    QTest::newRow("plain") << QByteArray("00000000013") << qint64(11);
    QTest::newRow("leading spaces") << QByteArray("         13") << qint64(11);
    QTest::newRow("trailing space") << QByteArray("13 ") << qint64(11);
    QTest::newRow("stops at zero byte") << QByteArray("13\0" "77", 5) << qint64(11);
    QTest::newRow("digits 8 and 9 fold in") << QByteArray("19") << qint64(17);
    QTest::newRow("no terminator, twelve digits") << QByteArray("777777777777") << qint64(0777777777777);
    QTest::newRow("garbage only") << QByteArray("x-+") << qint64(0);
}

void TestTar::lenientSize()
{
    QFETCH(QByteArray, fieldText);
    QFETCH(qint64, value);
    QByteArray sizeField = fieldText.leftJustified(12, '\0', true);
    QCOMPARE(TarFileReader::parseOctal(sizeField.constData(), 12), value);
    LM_VERIFY_ASSERT(TarFileReader::parseOctal(nullptr, 12), "oct_str");
}

void TestTar::damagedArchives_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<QString>("readable"); // the member that still reads in full
    QTest::addColumn<QByteArray>("contents");

    QByteArray header(512, '\0');
    header.replace(0, 5, "first");
    header.replace(124, 11, "00000000005");
    QByteArray member = header + QByteArray("12345").leftJustified(512, '\0');

    QTest::newRow("empty file") << QByteArray() << QStringList{} << QString() << QByteArray();
    QTest::newRow("zero blocks") << QByteArray(1024, '\0') << QStringList{} << QString() << QByteArray();
    QTest::newRow("no end marker") << member << QStringList{QStringLiteral("first")} << QStringLiteral("first")
                                   << QByteArray("12345");
    QByteArray second = header;
    second.replace(0, 6, "second");
    QTest::newRow("truncated after a header")
        << member + second << QStringList{QStringLiteral("first"), QStringLiteral("second")} << QStringLiteral("first")
        << QByteArray("12345");
    QByteArray huge = header;
    huge.replace(124, 11, "77777777777");
    QTest::newRow("size beyond the file") << huge + QByteArray(512, 'x') << QStringList{QStringLiteral("first")}
                                          << QString() << QByteArray();
    QByteArray noNul = header;
    noNul.replace(0, 100, QByteArray(100, 'N'));
    QTest::newRow("name without terminator") << noNul + QByteArray(512, 'x')
                                             << QStringList{QString(100, QLatin1Char('N'))}
                                             << QString(100, QLatin1Char('N')) << QByteArray("xxxxx");
    QTest::newRow("not a tar") << QByteArray("plain text, not an archive") << QStringList{QStringLiteral("plain text, not an archive")}
                               << QString() << QByteArray();
}

void TestTar::damagedArchives()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QStringList, names);
    QFETCH(QString, readable);
    QFETCH(QByteArray, contents);
    QTemporaryDir dir;
    TarFileReader reader;
    QVERIFY(reader.open(writeFile(dir, QStringLiteral("damaged.tar"), bytes)));
    QCOMPARE(reader.list(QStringLiteral(".*"), Qt::CaseSensitive), names);
    for (const QString &name : names) {
        if (name == readable)
            QCOMPARE(reader.read(name), contents);
        else
            QCOMPARE(reader.read(name), QByteArray()); // its data is not all in the file
    }
    QVERIFY(!reader.open(dir.filePath(QStringLiteral("missing.tar"))));
}

void TestTar::listPatterns_data()
{
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<Qt::CaseSensitivity>("cs");
    QTest::addColumn<QStringList>("names");

    QTest::newRow("xml members") << QStringLiteral(".*xml") << Qt::CaseSensitive
                                 << QStringList{QStringLiteral("brand.xml"), QStringLiteral("notxml")};
    QTest::newRow("whole name only") << QStringLiteral("brand") << Qt::CaseSensitive << QStringList{};
    QTest::newRow("case sensitive") << QStringLiteral(".*XML") << Qt::CaseSensitive
                                    << QStringList{QStringLiteral("UPPER.XML")};
    QTest::newRow("case insensitive") << QStringLiteral(".*XML") << Qt::CaseInsensitive
                                      << QStringList{QStringLiteral("UPPER.XML"), QStringLiteral("brand.xml"),
                                                     QStringLiteral("notxml")};
    QTest::newRow("invalid pattern") << QStringLiteral("(") << Qt::CaseSensitive << QStringList{};
}

void TestTar::listPatterns()
{
    QFETCH(QString, pattern);
    QFETCH(Qt::CaseSensitivity, cs);
    QFETCH(QStringList, names);
    QTemporaryDir dir;
    const QString archivePath = dir.filePath(QStringLiteral("l.tar"));
    QFile out(archivePath);
    QVERIFY(out.open(QIODevice::WriteOnly));
    {
        TarFileWriter writer(out);
        for (const QString &name : {QStringLiteral("brand.xml"), QStringLiteral("notxml"), QStringLiteral("UPPER.XML"),
                                    QStringLiteral("image.png")})
            QVERIFY(writer.addFile(writeFile(dir, QStringLiteral("src"), "x"), name));
    }
    out.close();
    TarFileReader reader;
    QVERIFY(reader.open(archivePath));
    QCOMPARE(reader.list(pattern, cs), names);
}

QTEST_GUILESS_MAIN(TestTar)
#include "tst_tar.moc"
