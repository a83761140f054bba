#include "staticdb/dynamicdb.h"

#include "app/notificationdispatcher.h"
#include "db/lmsqldb.h"
#include "staticdb/staticdblog.h"

#include <QSet>
#include <QSqlQuery>

namespace {

struct Node
{
    quint32 id = 0;
    QByteArray name;
    quint8 flags = 0;
    std::vector<Node> children; // subcategories first, then items
};

// Children of a category from the tables. A category reached twice (a move that made a cycle)
// is left out the second time, so a damaged tree still builds.
void readChildren(Node &node, const DynamicDB::Tables &tables, QSet<quint32> &seen)
{
    bool failed = false;
    for (const bool categories : {true, false}) {
        LmSqlQueryPtr query =
            LmSqlDb::instance()->cachedQuery(categories ? tables.subcategories : tables.items);
        if (!execBound(query, {int(node.id)})) {
            failed = true;
            continue;
        }
        // A run counts its categories and items in 16 bits each.
        int read = 0;
        while (query->next() && read++ < 0xFFFF) {
            Node child;
            child.id = query->value(0).toUInt();
            child.name = query->value(1).toString().toLatin1();
            child.name.replace('\0', ' ');
            child.flags = categories ? FLAG_CATEGORY | FLAG_CUSTOM : FLAG_CUSTOM;
            if (categories && seen.contains(child.id))
                continue;
            if (categories)
                seen.insert(child.id);
            node.children.push_back(std::move(child));
        }
    }
    if (failed)
        qCWarning(lcStaticDb, "Dynamic DB couldn't execute query!");
    for (Node &child : node.children) {
        if (child.flags & FLAG_CATEGORY)
            readChildren(child, tables, seen);
    }
}

} // namespace

DynamicDB::DynamicDB(Tables tables, int user_id)
    : _tables(std::move(tables))
    , _userId(user_id)
{
    rebuild();
}

void DynamicDB::rebuild()
{
    Node root{0, "ROOT", FLAG_CATEGORY, {}};
    root.children.push_back({quint32(kSharedRootId),
                             (QStringLiteral("Shared ") + _tables.baseName).toLatin1(),
                             FLAG_CATEGORY,
                             {}});
    if (_userId >= 0)
        root.children.push_back({quint32(rootIdOf(_userId)),
                                 (QStringLiteral("My ") + _tables.baseName).toLatin1(),
                                 FLAG_CATEGORY,
                                 {}});
    QSet<quint32> seen;
    for (Node &top : root.children) {
        seen.insert(top.id);
        readChildren(top, _tables, seen);
    }

    // Breadth first: every category's children become one run.
    std::vector<const Node *> order = {&root};
    std::vector<IndexEntry> entries;
    std::vector<quint8> flags;
    QByteArray names;
    for (size_t i = 0; i < order.size(); ++i) {
        const Node &node = *order[i];
        IndexEntry entry;
        entry.id = node.id;
        entry.nameOffset = quint32(names.size());
        names += node.name;
        names += '\0';
        if (node.flags & FLAG_CATEGORY) {
            quint32 categories = 0;
            for (const Node &child : node.children)
                categories += (child.flags & FLAG_CATEGORY) ? 1 : 0;
            entry.value = quint32(order.size());
            entry.extra = categories << 16 | quint32(node.children.size() - categories);
            for (const Node &child : node.children)
                order.push_back(&child);
        }
        entries.push_back(entry);
        flags.push_back(node.flags);
    }
    IndexEntry end;
    end.nameOffset = quint32(names.size());
    entries.push_back(end);
    flags.push_back(0);
    adopt(names, std::move(entries), std::move(flags));
    NotificationDispatcher::send(QStringLiteral("dynamicdb_reloaded_notification"));
}
