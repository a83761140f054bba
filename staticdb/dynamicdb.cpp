#include "staticdb/dynamicdb.h"

#include "app/notificationdispatcher.h"
#include "common/lmassert.h"
#include "db/lmsqldb.h"
#include "staticdb/staticdblog.h"

#include <QSet>
#include <QSqlQuery>

DynamicDB::DynamicDB(const Tables &tables, int user_id)
    : _tables(tables)
    , _userId(user_id)
{
    rebuild();
}

QString DynamicDB::sql(const char *text) const
{
    // Not arg(): it numbers the placeholders a text holds, not the ones named.
    QString statement = QString::fromLatin1(text);
    statement.replace(QLatin1String("%1"), QLatin1String(_tables.categoryTable));
    statement.replace(QLatin1String("%2"), QLatin1String(_tables.itemTable));
    statement.replace(QLatin1String("%3"), QLatin1String(_tables.itemId));
    return statement.replace(QLatin1String("%4"), QLatin1String(_tables.nameColumn));
}

bool DynamicDB::change(const char *text, const QVariantList &values)
{
    LmWriteTransaction write;
    const bool ok = write.commit(write.isOpen() && !runBound(sql(text), values).isNull());
    rebuild();
    return ok;
}

int DynamicDB::insertWithNextId(const QString &nextIdSql, const QVariantList &nextIdValues, int firstId,
                                const std::function<bool(int id)> &insert)
{
    // The id read here stays free until the insert commits: no other process writes in between.
    LmWriteTransaction write;
    int id = -1;
    if (write.isOpen()) {
        LmSqlQueryPtr next = runBound(nextIdSql, nextIdValues);
        if (!next.isNull() && next->next())
            id = std::max(next->value(0).toInt(), firstId);
    }
    const bool ok = write.commit(id >= 0 && insert(id));
    if (!ok)
        rebuild(); // the index may hold the row that was rolled back
    return ok ? id : -1;
}

int DynamicDB::userRootId(const Tables &tables, int user_id)
{
    LM_ASSERT(user_id >= -1 && user_id < 4096);
    const int root = rootIdOf(user_id);
    const QLatin1String table(tables.categoryTable);
    LmWriteTransaction write;
    LmSqlQueryPtr count =
        runBound(QStringLiteral("SELECT COUNT(*) FROM %1 WHERE category_id = ?").arg(table), {root});
    const bool missing = !count.isNull() && count->next() && count->value(0).toInt() < 1;
    LmSqlDb::releaseQuery(count); // no read may stay open while this connection writes
    if (write.isOpen() && missing) {
        const QString owner = user_id == -1 ? QStringLiteral("Shared ") : QStringLiteral("My ");
        runBound(QStringLiteral("INSERT INTO %1(category_id, parent_id, %2) VALUES (?, ?, ?)")
                     .arg(table, QLatin1String(tables.nameColumn)),
                 {root, 0, owner + QLatin1String(tables.baseName)});
    }
    write.commit();
    return root;
}

int DynamicDB::addCategory(int parent, const QString &name, int id)
{
    const auto insert = [&](int newId) {
        return change("INSERT INTO %1(category_id, parent_id, %4) VALUES (?, ?, ?)", {newId, parent, name});
    };
    if (id >= 0)
        return insert(id) ? id : -1;
    // Roots lie above the range looked at, so the first category is 0x1000000 all the same.
    return insertWithNextId(sql("SELECT MAX(category_id)+1 FROM %1 WHERE category_id+1 < ?"), {kUserRootBase},
                            kFirstCustomId, insert);
}

bool DynamicDB::renameCategory(int id, const QString &name)
{
    return change("UPDATE %1 SET %4 = ? WHERE category_id = ?", {name, id});
}

bool DynamicDB::moveCategory(int id, int parent)
{
    return change("UPDATE %1 SET parent_id = ? WHERE category_id = ?", {parent, id});
}

bool DynamicDB::moveItem(int id, int category)
{
    return change("UPDATE %2 SET category_id = ? WHERE %3 = ?", {category, id});
}

bool DynamicDB::deleteItem(int id)
{
    return change("DELETE FROM %2 WHERE %3 = ?", {id});
}

QString DynamicDB::categoryName(int id) const
{
    LmSqlQueryPtr query = runBound(sql("SELECT %4 FROM %1 WHERE category_id = ?"), {id});
    return !query.isNull() && query->next() ? query->value(0).toString() : QString();
}

namespace {

QList<QPair<int, QString>> pairs(LmSqlQueryPtr query)
{
    QList<QPair<int, QString>> rows;
    while (!query.isNull() && query->next())
        rows.append({query->value(0).toInt(), query->value(1).toString()});
    return rows;
}

} // namespace

QList<QPair<int, QString>> DynamicDB::subcategories(int category) const
{
    return pairs(
        runBound(sql("SELECT category_id, %4 FROM %1 WHERE parent_id = ? ORDER BY UPPER(%4)"), {category}));
}

QList<QPair<int, QString>> DynamicDB::itemsOf(int category) const
{
    return pairs(runBound(sql("SELECT %3, %4 FROM %2 WHERE category_id = ? ORDER BY UPPER(%4)"), {category}));
}

// The category and everything below it, each category once however the rows loop; one level at a
// time, since how deep categories nest is up to the rows.
bool DynamicDB::deleteCategoryRows(int id)
{
    std::vector<int> below = {id};
    QSet<int> seen = {id};
    for (size_t i = 0; i < below.size(); ++i) {
        for (const auto &sub : subcategories(below[i])) {
            if (!seen.contains(sub.first)) {
                seen.insert(sub.first);
                below.push_back(sub.first);
            }
        }
    }
    bool ok = true;
    for (auto it = below.crbegin(); it != below.crend(); ++it) { // everything below a category first
        const int category = *it;
        ok = !runBound(sql("DELETE FROM %2 WHERE category_id = ?"), {category}).isNull() && ok;
        ok = !runBound(sql("DELETE FROM %1 WHERE category_id = ?"), {category}).isNull() && ok;
    }
    return ok;
}

bool DynamicDB::deleteCategory(int id)
{
    LmSqlDb::begin();
    const bool ok = deleteCategoryRows(id);
    if (ok)
        LmSqlDb::commit();
    else
        LmSqlDb::rollback();
    rebuild();
    return ok;
}

void DynamicDB::rebuild()
{
    // Breadth first, straight into the index: each category's children (subcategories first) are
    // read when its turn comes and become one run. Nothing recurses, so no nesting of the rows
    // can exhaust the stack, and a category reached twice (a move that made a cycle) is left out
    // the second time, so a damaged tree still builds.
    IndexEntries entries;
    IndexFlags flags;
    QStringList names;
    const auto append = [&](quint32 id, const QString &name, quint8 flag) {
        IndexEntry entry{};
        entry.id = id;
        names.append(name);
        entries.push_back(entry);
        flags.push_back(flag);
    };
    const QString base = QString::fromLatin1(_tables.baseName);
    append(0, QStringLiteral("ROOT"), FLAG_CATEGORY);
    entries[0].value = 1;
    entries[0].extra = (_userId >= 0 ? 2u : 1u) << 16;
    append(quint32(kSharedRootId), QStringLiteral("Shared ") + base, FLAG_CATEGORY);
    if (_userId >= 0)
        append(quint32(rootIdOf(_userId)), QStringLiteral("My ") + base, FLAG_CATEGORY);
    QSet<quint32> seen = {quint32(kSharedRootId), quint32(rootIdOf(_userId))};

    const QString subcategories =
        sql("SELECT category_id, %4 FROM %1 WHERE parent_id = ? ORDER BY UPPER(%4)");
    const QString items = sql("SELECT %3, %4 FROM %2 WHERE category_id = ? ORDER BY UPPER(%4)");
    bool failed = false;
    for (size_t i = 1; i < entries.size(); ++i) {
        if (!(flags[i] & FLAG_CATEGORY))
            continue;
        const quint32 first = quint32(entries.size());
        quint32 counts[2] = {0, 0};
        for (const bool categories : {true, false}) {
            LmSqlQueryPtr query = LmSqlDb::instance()->cachedQuery(categories ? subcategories : items);
            if (!execBound(query, {int(entries[i].id)})) {
                failed = true;
                continue;
            }
            // A run counts its categories and items in 16 bits each.
            quint32 &read = counts[categories ? 0 : 1];
            while (read < 0xFFFF && query->next()) {
                const quint32 id = query->value(0).toUInt();
                if (categories && seen.contains(id))
                    continue;
                if (categories)
                    seen.insert(id);
                append(id, query->value(1).toString(),
                       categories ? FLAG_CATEGORY | FLAG_CUSTOM : FLAG_CUSTOM);
                ++read;
            }
        }
        entries[i].value = first;
        entries[i].extra = counts[0] << 16 | counts[1];
    }
    if (failed)
        qCWarning(lcStaticDb, "Dynamic DB couldn't execute query!");
    entries.push_back(IndexEntry{});
    flags.push_back(0);
    adopt(names, std::move(entries), std::move(flags));
    NotificationDispatcher::send(QStringLiteral("dynamicdb_reloaded_notification"));
}
