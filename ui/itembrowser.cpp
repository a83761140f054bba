#include "ui/itembrowser.h"

#include "app/profilepreferences.h"
#include "brand/brandengine.h"
#include "db/diaryedits.h"
#include "db/savedmealdb.h"
#include "db/userdb.h"
#include "model/dateconversion.h"
#include "model/quantitytext.h"
#include "staticdb/exdb.h"
#include "staticdb/fooddb.h"
#include "staticdb/itemsearch.h"
#include "ui/customitems.h"
#include "ui/daymodel.h"
#include "ui/diarycommands.h"
#include "ui/dragstarter.h"
#include "ui/keyfilter.h"
#include "ui/matchdelegate.h"
#include "ui/quantityspinbox.h"

#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QScopeGuard>
#include <QTabWidget>
#include <QTimer>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <algorithm>

namespace {

constexpr int kShownMatches = 100;
// Before any words: enough of the usual items to choose from without scrolling far.
constexpr int kUsualMatches = 30;
constexpr int kUsualAfterShowMs = 100;
} // namespace

ItemBrowser::ItemBrowser(DiaryUndoStack *undo, QWidget *parent)
    : QWidget(parent)
    , _undo(undo)
    , _custom(new CustomItems(this))
{
    const BrandEngine &brand = BrandEngine::instance();
    _kind = new QComboBox(this);
    _kind->setObjectName(QStringLiteral("kind"));
    _kind->addItem(QIcon(brand.getPixmap(QStringLiteral("graphics.icon.food"))), tr("Foods"));
    _kind->addItem(QIcon(brand.getPixmap(QStringLiteral("graphics.icon.exercise"))), tr("Exercises"));
    _kind->addItem(QIcon(brand.getPixmap(QStringLiteral("graphics.icon.mealplan"))), tr("My Saved Meals"));
    connect(_kind, &QComboBox::currentIndexChanged, this, &ItemBrowser::setBrowsing);
    _query = new QLineEdit(this);
    _query->setObjectName(QStringLiteral("search"));
    _query->setPlaceholderText(searchHint());
    _query->setToolTip(tr("Type 3 letters or more. A word after a minus sign (-salt) leaves out the "
                          "items that have it."));
    addClearButton(_query);
    connect(_query, &QLineEdit::textChanged, this, &ItemBrowser::search);
    // Down or Enter goes on to the matches.
    const auto intoMatches = [this] {
        if (_matches->count() > 0) {
            _views->setCurrentWidget(_matches);
            _matches->setFocus();
        }
    };
    _query->installEventFilter(new KeyFilter(this, Qt::Key_Down, intoMatches));
    _matches = new QListWidget(this);
    _matches->setObjectName(QStringLiteral("matches"));
    _matches->setItemDelegate(new MatchDelegate(_matches));
    _matches->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    _matches->setResizeMode(QListView::Adjust); // long names break anew at another width
    _searchNote = new QLabel(this);
    _searchNote->setObjectName(QStringLiteral("searchNote"));
    _searchNote->setWordWrap(true);
    _searchNote->hide();
    const auto addSoughtFood = [this] {
        const QStringList words =
            leadingAmount(_query->text()).rest.split(QLatin1Char(' '), Qt::SkipEmptyParts);
        QStringList name; // the words sought, not those left out
        for (const QString &word : words) {
            if (!word.startsWith(QLatin1Char('-')))
                name.append(word);
        }
        _custom->newCustomFood(-1, name.join(QLatin1Char(' ')));
    };
    connect(_searchNote, &QLabel::linkActivated, this, addSoughtFood);
    // Enter on words that found nothing takes the note's offer, as a click on it does.
    connect(_query, &QLineEdit::returnPressed, this, [this, intoMatches, addSoughtFood] {
        if (_matches->count() == 0 && _searchNote->textFormat() == Qt::RichText && !_searchNote->isHidden())
            addSoughtFood();
        else
            intoMatches();
    });
    connect(_matches, &QListWidget::currentItemChanged, this,
            [this](QListWidgetItem *item) { select(item ? item->data(Qt::UserRole).toInt() : -1); });
    connect(_matches, &QListWidget::itemActivated, this, [this] { addSelectedFood(); });
    _matches->installEventFilter(new KeyFilter(this, Qt::Key_Return, [this] { addSelectedFood(); }));
    // F3: every value of the chosen food.
    for (QWidget *chooser : std::initializer_list<QWidget *>{_matches, _query})
        chooser->installEventFilter(new KeyFilter(this, Qt::Key_F3, [this] { showNutrients(); }));
    _matches->setContextMenuPolicy(Qt::CustomContextMenu);
    menuOnShiftF10(_matches);
    connect(_matches, &QListWidget::customContextMenuRequested, this, &ItemBrowser::matchesMenu);
    _tree = new QTreeWidget(this);
    _tree->setObjectName(QStringLiteral("browseTree"));
    _tree->setHeaderHidden(true);
    _tree->setContextMenuPolicy(Qt::CustomContextMenu);
    menuOnShiftF10(_tree);
    connect(_tree, &QTreeWidget::itemExpanded, this, &ItemBrowser::fillTreeItem);
    connect(_tree, &QTreeWidget::currentItemChanged, this, [this](QTreeWidgetItem *item) {
        if (item && !item->data(0, kCategoryRole).toBool())
            select(item->data(0, Qt::UserRole).toInt());
    });
    connect(_tree, &QTreeWidget::itemActivated, this, [this](QTreeWidgetItem *item) {
        if (!item->data(0, kCategoryRole).toBool())
            addSelectedFood();
    });
    connect(_tree, &QTreeWidget::customContextMenuRequested, this, [this](const QPoint &at) {
        if (const QTreeWidgetItem *item = _tree->itemAt(at))
            _custom->treeMenu(item, _tree->viewport()->mapToGlobal(at));
    });
    _views = new QTabWidget(this);
    _views->addTab(_matches, tr("Best matches"));
    _views->addTab(_tree, tr("Browse"));
    connect(_views, &QTabWidget::currentChanged, this, [this](int tab) {
        const QListWidgetItem *item = _matches->currentItem();
        if (tab == 0 && item)
            select(item->data(Qt::UserRole).toInt());
    });
    _meal = new QComboBox(this);
    _meal->setObjectName(QStringLiteral("meal"));
    _serving = new QComboBox(this);
    _serving->setObjectName(QStringLiteral("serving"));
    _quantity = new QuantitySpinBox(this);
    _quantity->setObjectName(QStringLiteral("quantity"));
    _quantity->setValue(1);
    _quantity->installEventFilter(new KeyFilter(this, Qt::Key_Return, [this] { addSelectedFood(); }));
    _add = new QPushButton(tr("&Add to diary"), this);
    connect(_add, &QPushButton::clicked, this, [this] { addSelectedFood(); });
    auto *form = new QFormLayout;
    form->addRow(tr("&Meal:"), _meal);
    form->addRow(tr("&Serving:"), _serving);
    _quantityLabel = new QLabel(tr("&Quantity:"), this);
    _quantityLabel->setBuddy(_quantity);
    form->addRow(_quantityLabel, _quantity);
    // What the chosen amount brings, before it is added.
    _preview = new QLabel(this);
    _preview->setObjectName(QStringLiteral("preview"));
    _preview->setWordWrap(true);
    form->addRow(_preview);
    connect(_serving, &QComboBox::currentIndexChanged, this, &ItemBrowser::updatePreview);
    connect(_quantity, &QDoubleSpinBox::valueChanged, this, &ItemBrowser::updatePreview);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(_kind);
    layout->addWidget(_query);
    layout->addWidget(_searchNote);
    layout->addWidget(_views, 1);
    layout->addLayout(form);
    layout->addWidget(_add);

    // Drag a food, an exercise or a saved meal onto a meal of the day.
    const auto kindName = [this] {
        return _browsing == BrowseExercises    ? QByteArray("exercise ")
               : _browsing == BrowseSavedMeals ? QByteArray("meal ")
                                               : QByteArray("food ");
    };
    new DragStarter(_matches->viewport(), [this, kindName](const QPoint &at) {
        const QListWidgetItem *item = _matches->itemAt(at);
        return item ? kindName() + QByteArray::number(item->data(Qt::UserRole).toInt()) : QByteArray();
    });
    new DragStarter(_tree->viewport(), [this, kindName](const QPoint &at) {
        const QTreeWidgetItem *item = _tree->itemAt(at);
        return item && !item->data(0, kCategoryRole).toBool()
                   ? kindName() + QByteArray::number(item->data(0, Qt::UserRole).toInt())
                   : QByteArray();
    });
}

ItemBrowser::~ItemBrowser() = default;

QList<QWidget *> ItemBrowser::tabOrder() const
{
    return {_kind, _query, _views, _meal, _serving, _quantity, _add};
}

void ItemBrowser::setUser(int userId)
{
    _userId = userId;
    _foods = std::make_unique<FoodDB>(userId);
    _history.reset();
    _exercises = std::make_unique<ExDB>(userId);
    _metric = UserDB::getSettings(userId).measurement_units == 0;
    _meal->clear();
    for (const auto &[meal, name] : DayModel::meals(ProfilePreferences::load(userId).snackMode))
        _meal->addItem(name, meal);
    if (_date == QDate::currentDate())
        chooseMealOfNow();
    searchAgain();
}

void ItemBrowser::setDate(const QDate &date)
{
    const QDate today = QDate::currentDate();
    if (date == today && _date != today)
        chooseMealOfNow();
    _date = date;
}

void ItemBrowser::setBrowsing(int what)
{
    _browsing = what;
    _history.reset();
    const bool exercises = what == BrowseExercises;
    _meal->setEnabled(!exercises);
    _serving->setEnabled(what == BrowseFoods);
    _quantityLabel->setText(exercises ? tr("&Minutes:") : tr("&Quantity:"));
    _quantity->setEnabled(what != BrowseSavedMeals);
    _quantity->setValue(exercises ? 30 : 1);
    _query->setPlaceholderText(searchHint());
    if (_kind->currentIndex() != what)
        _kind->setCurrentIndex(what);
    searchAgain();
}

QString ItemBrowser::searchHint() const
{
    switch (_browsing) {
    case BrowseSavedMeals:
        return tr("Find a saved meal by its name");
    case BrowseExercises:
        return tr("Search exercises (3+ letters; -word omits)");
    default:
        return tr("Search foods (3+ letters; -word omits)");
    }
}

void ItemBrowser::searchAgain()
{
    _foodEnergies.clear(); // a custom food may have changed
    search(_query->text());
}

void ItemBrowser::savedMealsChanged()
{
    if (_browsing == BrowseSavedMeals)
        searchAgain();
}

void ItemBrowser::search(const QString &typed)
{
    _matches->clear();
    _searchNote->hide();
    select(-1);
    // "2 eggs": two of the usual serving of what the words find; "30 walking": half an hour of it.
    const LeadingAmount lead = _browsing == BrowseFoods       ? leadingAmount(typed)
                               : _browsing == BrowseExercises ? leadingMinutes(typed)
                                                              : LeadingAmount{std::nullopt, typed};
    _leadingAmount = _browsing == BrowseFoods ? lead.amount.value_or(1) : 1;
    _leadingMinutes = _browsing == BrowseExercises ? lead.amount : std::nullopt;
    const QString &query = lead.rest;
    // The tree follows the search once the words are long enough.
    const QScopeGuard tree([this] { populateTree(); });
    if (_browsing == BrowseSavedMeals) {
        // Few enough to filter by name as they are.
        const QString wanted = query.trimmed();
        const QList<QPair<int, QString>> meals = SavedMealDB::getMeals(SavedMealDB::categoryOf(_userId)) +
                                                 SavedMealDB::getMeals(SavedMealDB::kSharedCategory);
        for (const auto &meal : meals) {
            if (wanted.isEmpty() || meal.second.contains(wanted, Qt::CaseInsensitive))
                (new QListWidgetItem(meal.second, _matches))->setData(Qt::UserRole, meal.first);
        }
        if (_matches->count() > 0)
            _matches->setCurrentRow(0);
        if (meals.isEmpty()) {
            _searchNote->setText(tr("No saved meals yet: a meal of the diary is saved from its menu "
                                    "(right-click its name)."));
            _searchNote->show();
        }
        return;
    }
    // Reference items and the profile's own, best first, with what one of each brings.
    if (!_foods || !_foods->staticDB() || !_exercises->staticDB())
        return;
    const bool exercises = _browsing == BrowseExercises;
    // The profile's years of entries order the matches, and without words to search (too short,
    // or an empty box) they are the list: the profile's favourites and what it logs most. They
    // are read when there are words, or when the list is on screen; before the window first
    // shows, a moment later, so that its showing does not wait for them.
    const bool words = longestSearchWord(query) >= kShortestSearchWord;
    if (!_history && (words || isVisible()))
        _history = loadSearchHistory(_userId, exercises);
    static const SearchHistory none;
    const SearchHistory &history = _history ? *_history : none;
    IndexedDB &reference =
        exercises ? static_cast<IndexedDB &>(*_exercises->staticDB()) : *_foods->staticDB();
    DynamicDB *custom = exercises ? static_cast<DynamicDB *>(_exercises->dynamicDB()) : _foods->dynamicDB();
    ItemSearchResult result = searchItems(reference, custom, query, history, kShownMatches);
    const bool usual = !result.searched;
    if (usual && _history) {
        result = usualItems(reference, custom, *_history, kUsualMatches);
    } else if (usual) {
        QTimer::singleShot(kUsualAfterShowMs, this, [this] {
            if (!_history && _userId >= 0 && longestSearchWord(_query->text()) < kShortestSearchWord) {
                _history = loadSearchHistory(_userId, _browsing == BrowseExercises);
                search(_query->text());
            }
        });
    }
    // Exercises burn at the weight in force on the day shown.
    const double weight =
        exercises ? DiaryEdits::weightInForce(_userId, DateConversion::fromQDate(_date)).value_or(0.0) : 0.0;
    for (const FoundItem &found : result.items) {
        ItemEnergy energy;
        if (exercises) {
            Exercise exercise;
            _exercises->exercise(found.id, &exercise);
            energy = exerciseEnergy(exercise.scale, weight);
        } else {
            // Each food's usual serving is worked out once while the profile is shown.
            auto known = _foodEnergies.constFind(found.id);
            if (known == _foodEnergies.cend())
                known = _foodEnergies.insert(found.id, foodEnergy(found.id));
            energy = *known;
        }
        const QString text = describeEnergy(energy);
        auto *item = new QListWidgetItem(
            text.isEmpty() ? found.name : found.name + QStringLiteral(" \u2014 ") + text, _matches);
        item->setData(Qt::UserRole, found.id);
        item->setData(MatchDelegate::kNameRole, found.name);
        item->setData(MatchDelegate::kEnergyRole, text);
        item->setToolTip(item->text());
    }
    if (_matches->count() > 0)
        _matches->setCurrentRow(0);
    const bool nothing = result.searched && result.items.isEmpty();
    QString note =
        nothing ? tr("No matches for \"%1\"").arg(query.trimmed()) : result.closeMatchNote(query.trimmed());
    // A food the reference does not know is one the profile can add, named as searched: also
    // beside close matches ("grandma's lasagne" finds lasagne, not hers) and beside names that
    // only hold the words inside others ("latte" finds platters).
    const bool offerNew = result.searched && result.begun == 0 && !exercises && _userId >= 0;
    if (offerNew)
        note = note.toHtmlEscaped() +
               QStringLiteral(". <a href=\"new\">%1</a>").arg(tr("Add it as your own food..."));
    _searchNote->setTextFormat(offerNew ? Qt::RichText : Qt::PlainText);
    if (usual && _history)
        note = result.items.isEmpty()
                   ? tr("Your favourites and what you log most show here; type 3 letters or more to search.")
               : exercises ? tr("Your favourite and most logged exercises")
                           : tr("Your favourite and most logged foods");
    _searchNote->setText(note);
    _searchNote->setVisible(!note.isEmpty());
}

void ItemBrowser::forgetHistory()
{
    _history.reset();
    if (_browsing != BrowseSavedMeals && longestSearchWord(_query->text()) < kShortestSearchWord)
        search(_query->text()); // the favourites and most logged, read again
}

void ItemBrowser::matchesMenu(const QPoint &at)
{
    QListWidgetItem *item = _matches->itemAt(at);
    if (!item || _userId < 0)
        return;
    const int id = item->data(Qt::UserRole).toInt();
    QMenu menu(this);
    if (_browsing == BrowseSavedMeals) {
        menu.addAction(tr("&Rename..."), this, [this, id, item] {
            const QString name =
                QInputDialog::getText(this, tr("Rename Meal"), tr("&Name:"), QLineEdit::Normal, item->text());
            if (!name.trimmed().isEmpty()) {
                SavedMealDB::renameMeal(id, name.trimmed());
                searchAgain();
            }
        });
        menu.addAction(tr("&Delete"), this, [this, id, item] {
            if (QMessageBox::question(this, tr("Delete Meal"),
                                      tr("Delete the saved meal %1?").arg(item->text())) ==
                QMessageBox::Yes) {
                SavedMealDB::deleteMeal(id);
                searchAgain();
            }
        });
    } else {
        if (_browsing == BrowseFoods)
            menu.addAction(tr("&Nutrition Facts..."), QKeySequence(Qt::Key_F3), this,
                           [this] { showNutrients(); });
        const int type = _browsing == BrowseExercises ? Favorites::EXERCISES : Favorites::FOODS;
        const bool favourite = Favorites::contains(_userId, type, id);
        menu.addAction(favourite ? tr("Remove from &Favourites") : tr("Add to &Favourites"), this,
                       [this, type, id, favourite] {
                           favourite ? Favorites::remove(_userId, type, id)
                                     : Favorites::add(_userId, type, id);
                           forgetHistory();
                       });
    }
    menu.exec(_matches->viewport()->mapToGlobal(at));
}

void ItemBrowser::populateTree()
{
    _tree->clear();
    if (_browsing == BrowseSavedMeals || !_foods || !_foods->staticDB() || !_exercises->staticDB())
        return;
    const bool exercises = _browsing == BrowseExercises;
    const IndexedDB &reference = exercises ? static_cast<const IndexedDB &>(*_exercises->staticDB())
                                           : static_cast<const IndexedDB &>(*_foods->staticDB());
    const DynamicDB &custom = exercises ? static_cast<const DynamicDB &>(*_exercises->dynamicDB())
                                        : static_cast<const DynamicDB &>(*_foods->dynamicDB());
    auto *root = _tree->invisibleRootItem();
    root->setData(0, Qt::UserRole, int(reference.rootId()));
    root->setData(0, kCategoryRole, true);
    root->setData(0, kCustomRole, false);
    fillTreeItem(root);
    // The profile's own and the shared items after the reference ones.
    for (const int id : {DynamicDB::rootIdOf(_userId), kSharedRootId}) {
        const IndexEntry *entry = custom.lookup(quint32(id), true);
        if (!entry || !(custom.flags(entry) & FLAG_SHOWN))
            continue;
        auto *item = new QTreeWidgetItem(_tree, {custom.nameText(entry)});
        item->setData(0, Qt::UserRole, id);
        item->setData(0, kCategoryRole, true);
        item->setData(0, kCustomRole, true);
        new QTreeWidgetItem(item); // filled when opened
        if (custom.flags(entry) & FLAG_EXPANDED)
            item->setExpanded(true);
    }
}

void ItemBrowser::fillTreeItem(QTreeWidgetItem *parent)
{
    if (parent->childCount() == 1 && !parent->child(0)->data(0, Qt::UserRole).isValid())
        delete parent->takeChild(0);
    else if (parent->childCount() > 0)
        return; // filled already
    const bool exercises = _browsing == BrowseExercises;
    const bool customItems = parent->data(0, kCustomRole).toBool();
    const IndexedDB *db = nullptr;
    if (customItems)
        db = exercises ? static_cast<const IndexedDB *>(_exercises->dynamicDB()) : _foods->dynamicDB();
    else
        db = exercises ? static_cast<const IndexedDB *>(_exercises->staticDB()) : _foods->staticDB();
    std::unique_ptr<BrowsableDBIterator> it(
        db->children(parent->data(0, Qt::UserRole).toUInt(), FLAG_SHOWN, 0));
    QList<QTreeWidgetItem *> expand;
    while (const IndexEntry *e = it ? it->next() : nullptr) {
        const bool category = db->isCategory(e);
        QString name = db->nameText(e);
        if (customItems && !category) { // the index keeps 8-bit names; the tables have them whole
            Exercise exercise;
            name = exercises
                       ? (_exercises->dynamicDB()->exercise(int(e->id), &exercise) ? exercise.name : name)
                       : _foods->dynamicDB()->name(int(e->id));
        } else if (customItems) {
            name = static_cast<const DynamicDB *>(db)->categoryName(int(e->id));
        }
        auto *item = new QTreeWidgetItem(parent, {name});
        item->setData(0, Qt::UserRole, int(e->id));
        item->setData(0, kCategoryRole, category);
        item->setData(0, kCustomRole, customItems);
        if (category) {
            new QTreeWidgetItem(item);
            if (db->flags(e) & FLAG_EXPANDED)
                expand.append(item);
        }
    }
    for (QTreeWidgetItem *item : expand)
        item->setExpanded(true);
}
