#include "ui/customitems.h"

#include "staticdb/exdb.h"
#include "staticdb/fooddb.h"
#include "ui/customfooddialog.h"
#include "ui/itembrowser.h"

#include <QInputDialog>
#include <QMenu>
#include <QMessageBox>
#include <QTreeWidgetItem>

#include <algorithm>
#include <functional>

CustomItems::CustomItems(ItemBrowser *browser)
    : QObject(browser)
    , _browser(browser)
{
}

void CustomItems::treeMenu(const QTreeWidgetItem *item, const QPoint &at)
{
    const int userId = _browser->userId();
    if (userId < 0)
        return;
    const int id = item->data(0, Qt::UserRole).toInt();
    const bool category = item->data(0, ItemBrowser::kCategoryRole).toBool();
    const bool customItem = item->data(0, ItemBrowser::kCustomRole).toBool();
    const bool exercises = _browser->browsing() == ItemBrowser::BrowseExercises;
    const QString name = item->text(0);
    DynamicDB *custom = browsedCustom();
    const bool root = id == kSharedRootId || id == DynamicDB::rootIdOf(userId);
    QMenu menu(_browser);
    if (category && customItem) {
        if (!exercises)
            menu.addAction(tr("New &Food Here..."), this, [this, id] { newCustomFood(id); });
        else
            menu.addAction(tr("New E&xercise Here..."), this, [this, id] { newExercise(id); });
        menu.addAction(tr("New &Category..."), this, [this, id] {
            const QString name = QInputDialog::getText(_browser, tr("New Category"), tr("&Name:"));
            if (!name.trimmed().isEmpty())
                newCustomCategory(id, name.trimmed());
        });
        if (!root) {
            menu.addAction(tr("&Rename..."), this, [this, custom, id, name] {
                const QString renamed = QInputDialog::getText(_browser, tr("Rename Category"), tr("&Name:"),
                                                              QLineEdit::Normal, name);
                if (!renamed.trimmed().isEmpty()) {
                    custom->renameCategory(id, renamed.trimmed());
                    _browser->searchAgain();
                }
            });
            menu.addAction(tr("&Move To..."), this, [this, id] { moveCustomInDialog(id, true); });
            menu.addAction(tr("&Delete"), this, [this, custom, id, name] {
                if (QMessageBox::question(_browser, tr("Delete Category"),
                                          tr("Delete %1 with everything in it?").arg(name)) ==
                    QMessageBox::Yes) {
                    custom->deleteCategory(id);
                    _browser->searchAgain();
                }
            });
        }
    } else if (!category && customItem) {
        menu.addAction(tr("&Edit..."), this, [this, id, exercises] {
            if (exercises) {
                editExercise(id);
                return;
            }
            CustomFoodDialog dialog(_browser->foods()->dynamicDB(), id, -1, nullptr, _browser);
            if (dialog.exec() == QDialog::Accepted)
                _browser->searchAgain();
        });
        menu.addAction(tr("&Move To..."), this, [this, id] { moveCustomInDialog(id, false); });
        menu.addAction(tr("&Delete"), this, [this, custom, id, name] {
            if (QMessageBox::question(_browser, tr("Delete"), tr("Delete %1?").arg(name)) != QMessageBox::Yes)
                return;
            custom->deleteItem(id);
            _browser->searchAgain();
        });
    } else if (!category && !exercises) {
        menu.addAction(tr("&Copy to My Foods..."), this, [this, id] {
            _browser->select(id);
            copySelectedToCustom();
        });
    }
    if (!menu.isEmpty())
        menu.exec(at);
}

void CustomItems::newExercise(int category)
{
    const QString name = QInputDialog::getText(_browser, tr("New Exercise"), tr("&Name:"));
    if (name.trimmed().isEmpty())
        return;
    bool ok = false;
    const double met =
        QInputDialog::getDouble(_browser, tr("New Exercise"),
                                tr("&MET value (1 is sitting still, 8 is running):"), 4, 0.5, 30, 1, &ok);
    if (!ok)
        return;
    makeRootRow(category);
    _browser->exercises()->dynamicDB()->addExercise(category, name.trimmed(),
                                                    float(met) * kCaloriesPerMetMinuteKg);
    _browser->searchAgain();
}

void CustomItems::editExercise(int id)
{
    ExDBDynamic *exercises = _browser->exercises()->dynamicDB();
    Exercise exercise;
    exercises->exercise(id, &exercise);
    const QString name =
        QInputDialog::getText(_browser, tr("Edit Exercise"), tr("&Name:"), QLineEdit::Normal, exercise.name);
    if (name.trimmed().isEmpty())
        return;
    bool ok = false;
    const double met = QInputDialog::getDouble(_browser, tr("Edit Exercise"), tr("&MET value:"),
                                               exercise.scale / kCaloriesPerMetMinuteKg, 0.5, 30, 1, &ok);
    if (ok) {
        exercises->updateExercise(id, name.trimmed(), float(met) * kCaloriesPerMetMinuteKg);
        _browser->searchAgain();
    }
}

DynamicDB *CustomItems::browsedCustom() const
{
    return _browser->browsing() == ItemBrowser::BrowseExercises
               ? static_cast<DynamicDB *>(_browser->exercises()->dynamicDB())
               : static_cast<DynamicDB *>(_browser->foods()->dynamicDB());
}

const DynamicDB::Tables &CustomItems::browsedTables() const
{
    return _browser->browsing() == ItemBrowser::BrowseExercises ? ExDBDynamic::kTables
                                                                : FoodDBDynamic::kTables;
}

void CustomItems::makeRootRow(int category)
{
    // The roots are in the index from the start; their rows only once something is filed there.
    const int userId = _browser->userId();
    if (category == kSharedRootId || category == DynamicDB::rootIdOf(userId))
        DynamicDB::userRootId(browsedTables(), category == kSharedRootId ? -1 : userId);
}

QList<QPair<int, QString>> CustomItems::customMoveTargets(int id, bool category) const
{
    const DynamicDB *custom = browsedCustom();
    const QLatin1String base(browsedTables().baseName);
    QList<QPair<int, QString>> targets;
    // Depth first, as paths; a category never goes under itself.
    const std::function<void(int, const QString &)> walk = [&](int parent, const QString &path) {
        if (category && parent == id)
            return;
        targets.append({parent, path});
        for (const auto &[child, name] : custom->subcategories(parent))
            walk(child, path + QStringLiteral(" / ") + name);
    };
    walk(DynamicDB::rootIdOf(_browser->userId()), tr("My %1").arg(base));
    walk(kSharedRootId, tr("Shared %1").arg(base));
    return targets;
}

bool CustomItems::moveCustom(int id, bool category, int target)
{
    DynamicDB *custom = browsedCustom();
    const auto targets = customMoveTargets(id, category);
    if (!std::any_of(targets.cbegin(), targets.cend(), [target](const auto &t) { return t.first == target; }))
        return false;
    makeRootRow(target);
    const bool moved = category ? custom->moveCategory(id, target) : custom->moveItem(id, target);
    _browser->searchAgain();
    return moved;
}

void CustomItems::moveCustomInDialog(int id, bool category)
{
    const auto targets = customMoveTargets(id, category);
    QStringList paths;
    for (const auto &target : targets)
        paths.append(target.second);
    bool ok = false;
    const QString chosen = QInputDialog::getItem(_browser, tr("Move"), tr("&Move to:"), paths, 0, false, &ok);
    if (ok && paths.contains(chosen))
        moveCustom(id, category, targets[paths.indexOf(chosen)].first);
}

int CustomItems::newCustomCategory(int parent, const QString &name)
{
    makeRootRow(parent);
    const int id = browsedCustom()->addCategory(parent, name);
    _browser->searchAgain();
    return id;
}

int CustomItems::newCustomFood(int category, const QString &name)
{
    const int userId = _browser->userId();
    if (userId < 0)
        return -1;
    if (category < 0)
        category = FoodDBDynamic::userRootId(userId);
    Food prefill;
    prefill.name = name.simplified();
    if (!prefill.name.isEmpty())
        prefill.name[0] = prefill.name[0].toUpper();
    CustomFoodDialog dialog(_browser->foods()->dynamicDB(), -1, category, &prefill, _browser);
    if (dialog.exec() != QDialog::Accepted)
        return -1;
    _browser->searchAgain();
    return dialog.foodId();
}

int CustomItems::copySelectedToCustom()
{
    const int userId = _browser->userId();
    const int selected = _browser->selectedId();
    const std::optional<int> servingId = _browser->servingId();
    if (userId < 0 || _browser->browsing() != ItemBrowser::BrowseFoods || selected < 0 ||
        FoodDB::isCustom(selected) || !servingId)
        return -1;
    // The reference food as one serving of the size chosen, with its values for that.
    FoodDiaryItem item;
    item.changeFood(selected);
    item.setServing(*servingId);
    item.setSize(float(_browser->quantity()));
    Food prefill;
    prefill.name = item.food_name;
    prefill.values = Food::fromNutrients(item.nutrients());
    const QString serving =
        item.size == 1.0f
            ? item.serv_name
            : QStringLiteral("%1 x %2").arg(QLocale::c().toString(double(item.size), 'g', 6), item.serv_name);
    prefill.servings = {{serving, 0, 1.0f}};
    CustomFoodDialog dialog(_browser->foods()->dynamicDB(), -1, FoodDBDynamic::userRootId(userId), &prefill,
                            _browser);
    if (dialog.exec() != QDialog::Accepted)
        return -1;
    _browser->searchAgain();
    return dialog.foodId();
}
