// static.db from arbitrary bytes: open both chunks, browse everything, decode every payload,
// search. An input whose first byte is odd is not the file itself but a recipe for a well-formed
// tree (deep chains, wide runs, runs laid out breadth first, depth first or children before their
// parents), which random bytes would hardly ever make: the walks over deep and wide trees are
// what it is for.

#include "app/lmsettings.h"
#include "fuzzcontent.h"
#include "staticdb/exdb.h"
#include "staticdb/fooddb.h"
#include "staticdb/itemsearch.h"
#include "staticdb/staticdb.h"
#include "staticdb/staticdbwriter.h"

#include <QDir>
#include <QFile>
#include <QLoggingCategory>
#include <QTemporaryDir>
#include <QtEndian>

#include <algorithm>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

namespace {

constexpr size_t kMaxRecords = 150000; // a few chains reach far beyond any stack a recursion had
constexpr size_t kMaxRun = 0xFFFF;     // child categories, and child items, of one category

const char *const kNames[] = {"", "Apple", "pie", "Pie, apple", "raw", "Chicken, fried", "Level", "x"};

struct Tree
{
    struct Node
    {
        bool category;
        quint8 flags;
        quint8 name;
        std::vector<quint32> categories, items; // children, categories only
    };
    std::vector<Node> nodes = {Node{true, 0, 0, {}, {}}};

    bool full() const { return nodes.size() >= kMaxRecords; }
    // A new child of parent; false when the tree or the parent's run is full.
    bool add(quint32 parent, bool category, quint8 byte, quint32 *made = nullptr)
    {
        const auto run = [&]() -> std::vector<quint32> & {
            return category ? nodes[parent].categories : nodes[parent].items;
        };
        if (full() || run().size() >= kMaxRun)
            return false;
        const quint32 id = quint32(nodes.size());
        nodes.push_back(Node{
            category, quint8((byte & 0x80) ? 0x40 : 0x04), quint8((byte >> 3) % std::size(kNames)), {}, {}});
        run().push_back(id); // nodes may have moved
        if (made)
            *made = id;
        return true;
    }
};

Tree grow(const uint8_t *data, size_t size)
{
    Tree tree;
    std::vector<quint32> path = {0}; // from the root to the category being filled
    // Each byte an operation (its low three bits; its others name and flag what it makes).
    for (size_t at = 0; at < size && !tree.full(); ++at) {
        const uint8_t op = data[at];
        const uint8_t next = at + 1 < size ? data[at + 1] : 0;
        quint32 made = 0;
        switch (op % 8) {
        case 0: // a leaf here
            tree.add(path.back(), false, op);
            break;
        case 1: // a category, and into it
            if (tree.add(path.back(), true, op, &made))
                path.push_back(made);
            break;
        case 2: // out of one
            if (path.size() > 1)
                path.pop_back();
            break;
        case 3: { // a chain of categories, up to 8,161 deep, and into its bottom
            const size_t depth = 1 + size_t(next) * 32;
            for (size_t i = 0; i < depth && tree.add(path.back(), true, op, &made); ++i)
                path.push_back(made);
            ++at;
            break;
        }
        case 4: // a wide run of leaves
            for (size_t i = 0; i < size_t(next) * 16 && tree.add(path.back(), false, op); ++i) {
            }
            ++at;
            break;
        case 5: // a category, staying here
            tree.add(path.back(), true, op);
            break;
        case 6: // back to the root
            path.resize(1);
            break;
        case 7: // out of several
            path.resize(std::max<size_t>(1, path.size() - std::min<size_t>(path.size(), next)));
            ++at;
            break;
        }
    }
    return tree;
}

void put32(QByteArray &out, quint32 value)
{
    char bytes[4];
    qToBigEndian(value, bytes);
    out.append(bytes, 4);
}

// The file of a tree, its runs in the given order: 0 breadth first, 1 depth first, 2 each
// category's run before its parent's.
QByteArray layOut(const Tree &tree, int order)
{
    std::vector<quint32> runOrder; // categories, in the order their runs are placed
    if (order == 0) {
        std::deque<quint32> queue = {0};
        while (!queue.empty()) {
            runOrder.push_back(queue.front());
            queue.pop_front();
            for (quint32 c : tree.nodes[runOrder.back()].categories)
                queue.push_back(c);
        }
    } else {
        std::vector<quint32> stack = {0};
        while (!stack.empty()) {
            runOrder.push_back(stack.back());
            stack.pop_back();
            const auto &children = tree.nodes[runOrder.back()].categories;
            stack.insert(stack.end(), children.rbegin(), children.rend());
        }
        if (order == 2)
            std::reverse(runOrder.begin(), runOrder.end());
    }
    std::vector<quint32> records = {0}; // nodes in table order
    std::vector<quint32> firstChild(tree.nodes.size(), 0);
    for (quint32 c : runOrder) {
        firstChild[c] = quint32(records.size());
        records.insert(records.end(), tree.nodes[c].categories.begin(), tree.nodes[c].categories.end());
        records.insert(records.end(), tree.nodes[c].items.begin(), tree.nodes[c].items.end());
    }

    QByteArray table;
    QByteArray names;
    for (quint32 n : records) {
        const Tree::Node &node = tree.nodes[n];
        const quint32 id = n == 0 ? 0 : n & 0xFFFFFF;
        put32(table, quint32(node.category ? 0x80 | node.flags : node.flags) << 24 | id);
        put32(table, quint32(names.size()));
        names += kNames[node.name];
        names += '\0';
        if (node.category) {
            put32(table, firstChild[n]);
            put32(table, quint32(node.categories.size()) << 16 | quint32(node.items.size()));
        } else {
            put32(table, 0);
            put32(table, 0); // every leaf shares the one payload
        }
    }
    put32(table, 0);
    put32(table, quint32(names.size()));
    put32(table, 0);
    put32(table, 0);
    std::vector<std::optional<float>> values(10);
    values[0] = 52.0f;
    const QByteArray payload = StaticDbWriter::foodPayload(1, "x", values, 'M', 100.0f, {{1.0f, "g"}});

    QByteArray file("Database subject to copyright.\x1a\0", 32);
    put32(file, 1);
    file += "2016-05-01";
    file += QByteArray(18, '\0');
    const quint32 chunk = 64 + 3 * 8; // chunks 1 and 2 are the same bytes
    for (quint32 id : {1u, 2u}) {
        put32(file, id);
        put32(file, chunk);
    }
    file += QByteArray(8, '\0');
    put32(file, quint32(records.size() + 1));
    put32(file, 16);
    put32(file, 16 + quint32(table.size()));
    put32(file, 16 + quint32(table.size() + names.size()));
    file += table;
    file += names;
    file += payload;
    return file;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (!prepareContentFolder())
        return 0;
    {
        QFile file(StaticDB::fileName());
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return 0;
        if (size > 0 && (data[0] & 1))
            file.write(layOut(grow(data + 1, size - 1), (data[0] >> 1) % 3));
        else
            file.write(reinterpret_cast<const char *>(data), qint64(size));
    }
    for (quint32 chunk : {1u, 2u}) {
        bool failed = false;
        StaticDB db(chunk, &failed);
        if (failed)
            continue;
        std::unique_ptr<BrowsableDBIterator> it(db.all(0, 0));
        size_t bytes = 0;
        while (const IndexEntry *e = it->next()) {
            const char *name = db.namePointer(e);
            for (quint32 i = 0; i < db.nameLength(e); ++i)
                bytes += uchar(name[i]);
            const QByteArrayView payload = db.payload(e);
            if (!payload.isEmpty())
                bytes += uchar(payload.front()) + uchar(payload.back());
            if (!db.isCategory(e)) {
                Food food;
                if (FoodDBStatic::decodePayload(payload, e->value, &food))
                    bytes += size_t(food.servings.size());
            }
            std::unique_ptr<BrowsableDBIterator> children(db.children(e->id, 0, 0));
        }
        if (chunk == 2) {
            ExDBStatic exercises(&failed);
            Exercise exercise;
            for (quint32 id = 0; !failed && id < 16; ++id) // each a scan of the whole table
                exercises.exercise(int(id), &exercise);
        }
        db.search(QStringLiteral("apple raw -pie"), false, 0);
        db.search(QStringLiteral("-xyz"), false, 0x04);
        db.search(QStringLiteral("level"), false, 0); // a whole subtree shown at once
        db.search(QStringLiteral("apple -level"), false, 0);
        // Ranked as both faces rank: names of any bytes, close matches over every name, the
        // other forms of a word.
        const SearchHistory history;
        for (const char *query : {"apple raw -pie", "brocoli", "blueberry"})
            searchItems(db, nullptr, QString::fromLatin1(query), history, 25);
        db.reset();
        (void)bytes;
    }
    return 0;
}
