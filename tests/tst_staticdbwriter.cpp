// The reference database format as the writer lays it out, read back byte by byte.

#include "staticdb/staticdbwriter.h"
#include "testsupport.h"

#include <QtEndian>

#include <cstring>

namespace {

quint32 at32(const QByteArray &bytes, qsizetype offset)
{
    return qFromBigEndian<quint32>(bytes.constData() + offset);
}

float atFloat(const QByteArray &bytes, qsizetype offset)
{
    const quint32 bits = at32(bytes, offset);
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

StaticDbNode node(bool category, quint32 id, const char *name, std::vector<StaticDbNode> children = {})
{
    StaticDbNode n;
    n.category = category;
    n.id = id;
    n.name = name;
    n.children = std::move(children);
    return n;
}

} // namespace

class TestStaticDbWriter : public QObject
{
    Q_OBJECT

private slots:
    void layout();
    void valueMasks_data();
    void valueMasks();
    void foodPayload();
};

void TestStaticDbWriter::layout()
{
    StaticDbNode apple = node(false, 9003, "Apples, raw, with skin");
    apple.leafValue = 77;
    apple.payload = "AP";
    StaticDbNode pear = node(false, 9252, "Pears, raw");
    pear.payload = "PEAR";
    StaticDbNode fruits = node(true, 900, "Fruits", {node(true, 901, "Apples", {apple}), pear});
    StaticDbWriter writer(QDate(2016, 5, 1));
    writer.addChunk(1, node(true, 0, "", {fruits}));
    writer.addChunk(2, node(true, 0, "", {}));
    const QByteArray file = writer.build();

    QCOMPARE(file.left(32), QByteArray("Database subject to copyright.\x1a\0", 32));
    QCOMPARE(at32(file, 32), 1u);
    QCOMPARE(file.mid(36, 10), QByteArray("2016-05-01"));
    QCOMPARE(file.mid(46, 18), QByteArray(18, '\0'));
    QCOMPARE(at32(file, 64), 1u);
    QCOMPARE(at32(file, 72), 2u);
    QCOMPARE(at32(file, 80), 0u); // end of the directory

    const qsizetype chunk = at32(file, 68);
    QCOMPARE(chunk, 88);
    QCOMPARE(at32(file, chunk), 6u); // root, Fruits, Apples (category), Pears, Apples (item), end
    const qsizetype table = chunk + at32(file, chunk + 4);
    const qsizetype names = chunk + at32(file, chunk + 8);
    const qsizetype payloads = chunk + at32(file, chunk + 12);
    const auto record = [&](int i, int field) { return at32(file, table + 16 * i + 4 * field); };
    const auto name = [&](int i) { return QByteArray(file.constData() + names + record(i, 1)); };

    // Root: one child category at record 1.
    QCOMPARE(record(0, 0), 0x80000000u);
    QCOMPARE(record(0, 2), 1u);
    QCOMPARE(record(0, 3), 0x00010000u);
    // Fruits: the Apples category first, then the pear, as one run from record 2.
    QCOMPARE(record(1, 0), 0x80000000u | 900);
    QCOMPARE(name(1), QByteArray("Fruits"));
    QCOMPARE(record(1, 2), 2u);
    QCOMPARE(record(1, 3), 0x00010001u);
    QCOMPARE(name(2), QByteArray("Apples"));
    QCOMPARE(record(2, 2), 4u);
    QCOMPARE(name(3), QByteArray("Pears, raw"));
    QCOMPARE(record(3, 0), 9252u);
    QCOMPARE(file.mid(payloads + record(3, 3), 4), QByteArray("PEAR"));
    QCOMPARE(record(4, 0), 9003u);
    QCOMPARE(record(4, 2), 77u);
    QCOMPARE(file.mid(payloads + record(4, 3), 2), QByteArray("AP"));
    // Names in record order; the end record marks their end.
    QCOMPARE(record(5, 1) - record(4, 1) - 1, quint32(std::strlen("Apples, raw, with skin")));
    QCOMPARE(names + record(5, 1), payloads);
}

void TestStaticDbWriter::valueMasks_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<QList<int>>("present");
    QTest::addColumn<QByteArray>("masks"); // the mask bytes in order
    QTest::newRow("none") << 0 << QList<int>{} << QByteArray("\x00", 1);
    QTest::newRow("burn rate") << 1 << QList<int>{0} << QByteArray("\x01");
    QTest::newRow("second group") << 10 << QList<int>{0, 9} << QByteArray("\x81\x04");
    QTest::newRow("sugar at 29") << 30 << QList<int>{29} << QByteArray("\x80\x80\x80\x80\x02", 5);
}

void TestStaticDbWriter::valueMasks()
{
    QFETCH(int, count);
    QFETCH(QList<int>, present);
    QFETCH(QByteArray, masks);
    std::vector<std::optional<float>> values(static_cast<size_t>(count));
    for (int position : present)
        values[size_t(position)] = float(position) + 0.5f;
    const QByteArray encoded = StaticDbWriter::encodeValues(values);
    QCOMPARE(encoded.size(), masks.size() + 4 * present.size());
    // Walk it: each mask byte, then its values.
    qsizetype offset = 0;
    int group = 0;
    int found = 0;
    for (char mask : masks) {
        QCOMPARE(encoded.at(offset++), mask);
        for (int bit = 0; bit < 7; ++bit) {
            if (quint8(mask) & (1u << bit)) {
                QCOMPARE(atFloat(encoded, offset), float(group * 7 + bit) + 0.5f);
                offset += 4;
                ++found;
            }
        }
        ++group;
    }
    QCOMPARE(found, present.size());
}

void TestStaticDbWriter::foodPayload()
{
    std::vector<std::optional<float>> nutrients(30);
    nutrients[POS_CALORIES] = 52.0f;
    nutrients[POS_FIBER] = 2.4f;
    const QByteArray payload = StaticDbWriter::foodPayload(9003, "USDA SR28", nutrients, 'M', 100.0f,
                                                           {{109.0f, "1 cup, sliced"}, {182.0f, "1 medium"}});
    QCOMPARE(at32(payload, 0), 9003u);
    QCOMPARE(payload.mid(4, 10), QByteArray("USDA SR28\0", 10));
    // Mask 0x91 with its two values, then the masks of positions 7 to 34 with none.
    const qsizetype header = 14 + 1 + 8 + 4;
    QCOMPARE(payload.mid(14, 1), QByteArray("\x91"));
    QCOMPARE(payload.mid(23, 4), QByteArray("\x80\x80\x80\x00", 4));
    QCOMPARE(payload.at(header), char(0x52)); // 2 servings, mass, quantity follows
    QCOMPARE(atFloat(payload, header + 1), 100.0f);
    QCOMPARE(atFloat(payload, header + 5), 109.0f);
    QCOMPARE(QByteArray(payload.constData() + header + 9), QByteArray("1 cup, sliced"));
    QCOMPARE(StaticDbWriter::exercisePayload(std::nullopt), QByteArray("\x00", 1));
}

QTEST_GUILESS_MAIN(TestStaticDbWriter)
#include "tst_staticdbwriter.moc"
