#include "staticdb/staticdbwriter.h"

#include "common/lmassert.h"

#include <QSaveFile>
#include <QtEndian>

#include <cstring>
#include <deque>

namespace {

constexpr char kMagic[32] = "Database subject to copyright.\x1a";

void put32(QByteArray &out, quint32 value)
{
    char bytes[4];
    qToBigEndian(value, bytes);
    out.append(bytes, 4);
}

void putFloat(QByteArray &out, float value)
{
    quint32 bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    put32(out, bits);
}

void set32(QByteArray &out, qsizetype offset, quint32 value)
{
    qToBigEndian(value, out.data() + offset);
}

// One chunk: every category's children as one run, child categories first. Breadth first the
// runs follow their parents level by level; depth first each category's run comes right after
// its parent's (the order of the runs is free).
QByteArray buildChunk(const StaticDbNode &root, StaticDbWriter::Layout layout)
{
    LM_ASSERT(root.category && root.id == 0);
    std::vector<const StaticDbNode *> records = {&root};
    std::vector<quint32> firstChild(1); // by record, the index its children start at
    std::deque<size_t> todo = {0};      // categories whose runs are still to be placed
    const bool depthFirst = layout == StaticDbWriter::Layout::DepthFirst;
    while (!todo.empty()) {
        const size_t i = depthFirst ? todo.back() : todo.front();
        if (depthFirst)
            todo.pop_back();
        else
            todo.pop_front();
        firstChild[i] = quint32(records.size());
        const size_t begin = records.size();
        for (const bool category : {true, false}) {
            for (const StaticDbNode &child : records[i]->children) {
                if (child.category == category)
                    records.push_back(&child);
            }
        }
        firstChild.resize(records.size());
        size_t end = begin;
        while (end < records.size() && records[end]->category)
            ++end;
        for (size_t c = begin; c < end; ++c)
            todo.push_back(depthFirst ? end - 1 - (c - begin) : c); // depth first: the first child's run next
    }

    const quint32 count = quint32(records.size() + 1); // and the end record
    QByteArray names;
    QByteArray payloads;
    QByteArray table;
    for (size_t i = 0; i < records.size(); ++i) {
        const StaticDbNode &node = *records[i];
        LM_ASSERT(node.id < (1u << 24));
        LM_ASSERT(!node.name.contains('\0'));
        quint32 head = (quint32(node.category ? 0x80 : 0) | (node.flags & 0x7C)) << 24 | node.id;
        put32(table, head);
        put32(table, quint32(names.size()));
        names += node.name;
        names += '\0';
        if (node.category) {
            quint32 categories = 0;
            for (const StaticDbNode &child : node.children)
                categories += child.category ? 1 : 0;
            const quint32 items = quint32(node.children.size()) - categories;
            LM_ASSERT(categories < 0x10000 && items < 0x10000);
            put32(table, firstChild[i]);
            put32(table, categories << 16 | items);
        } else {
            put32(table, node.leafValue);
            put32(table, quint32(payloads.size()));
            payloads += node.payload;
        }
    }
    // The end record marks where the names end.
    put32(table, 0);
    put32(table, quint32(names.size()));
    put32(table, 0);
    put32(table, 0);

    QByteArray chunk;
    const quint32 tableOffset = 16;
    const quint32 namesOffset = tableOffset + quint32(table.size());
    const quint32 payloadOffset = namesOffset + quint32(names.size());
    put32(chunk, count);
    put32(chunk, tableOffset);
    put32(chunk, namesOffset);
    put32(chunk, payloadOffset);
    chunk += table;
    chunk += names;
    chunk += payloads;
    return chunk;
}

} // namespace

StaticDbWriter::StaticDbWriter(const QDate &created, Layout layout)
    : _created(created)
    , _layout(layout)
{
}

void StaticDbWriter::addChunk(quint32 chunkId, const StaticDbNode &root)
{
    LM_ASSERT(chunkId > 0);
    _chunks.emplace_back(chunkId, root);
}

QByteArray StaticDbWriter::build() const
{
    QByteArray out(kMagic, 32);
    put32(out, 1);
    out += _created.toString(QStringLiteral("yyyy-MM-dd")).toLatin1();
    out += QByteArray(18, '\0');
    const qsizetype directory = out.size();
    out += QByteArray(qsizetype(8 * (_chunks.size() + 1)), '\0');
    for (size_t i = 0; i < _chunks.size(); ++i) {
        set32(out, directory + qsizetype(8 * i), _chunks[i].first);
        set32(out, directory + qsizetype(8 * i) + 4, quint32(out.size()));
        out += buildChunk(_chunks[i].second, _layout);
    }
    return out;
}

bool StaticDbWriter::write(const QString &path, QString *error) const
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(build()) < 0 || !file.commit()) {
        if (error)
            *error = file.errorString();
        return false;
    }
    return true;
}

QByteArray StaticDbWriter::encodeValues(const std::vector<std::optional<float>> &positions)
{
    QByteArray out;
    const size_t groups = positions.empty() ? 1 : (positions.size() + 6) / 7;
    for (size_t g = 0; g < groups; ++g) {
        quint8 mask = g + 1 < groups ? 0x80 : 0;
        QByteArray values;
        for (size_t bit = 0; bit < 7; ++bit) {
            const size_t position = g * 7 + bit;
            if (position < positions.size() && positions[position]) {
                mask |= quint8(1u << bit);
                putFloat(values, *positions[position]);
            }
        }
        out += char(mask);
        out += values;
    }
    return out;
}

QByteArray StaticDbWriter::foodPayload(quint32 numeric, const QByteArray &secondText,
                                       const std::vector<std::optional<float>> &nutrients, char measureKind,
                                       std::optional<float> referenceQuantity,
                                       const QList<StaticFoodServing> &servings)
{
    LM_ASSERT(servings.size() < 16);
    QByteArray out;
    put32(out, numeric);
    out += secondText;
    out += '\0';
    out += encodeValues(nutrients);
    quint8 header = quint8(servings.size());
    header |= measureKind == 'M' ? 0x10 : measureKind == 'V' ? 0x20 : 0x30;
    if (referenceQuantity)
        header |= 0x40;
    out += char(header);
    if (referenceQuantity)
        putFloat(out, *referenceQuantity);
    for (const StaticFoodServing &serving : servings) {
        putFloat(out, serving.size);
        out += serving.name;
        out += '\0';
    }
    return out;
}

QByteArray StaticDbWriter::exercisePayload(std::optional<float> burnRate)
{
    return encodeValues({burnRate});
}
