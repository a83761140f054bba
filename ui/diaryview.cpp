#include "ui/diaryview.h"

#include "app/lmsettings.h"
#include "app/profilepreferences.h"
#include "brand/brandengine.h"
#include "db/diarydb.h"
#include "db/diaryedits.h"
#include "db/lmsqldb.h"
#include "db/savedmealdb.h"
#include "db/userdb.h"
#include "model/dateconversion.h"
#include "model/greenticks.h"
#include "model/unitdescriptor.h"
#include "staticdb/exdb.h"
#include "staticdb/fooddb.h"
#include "staticdb/itemsearch.h"
#include "ui/customfooddialog.h"
#include "ui/daystatus.h"
#include "ui/diarycommands.h"
#include "ui/dragstarter.h"
#include "ui/entrydelegate.h"
#include "ui/keyfilter.h"
#include "ui/matchdelegate.h"
#include "ui/nutrientsdialog.h"

#include <QApplication>
#include <QCalendarWidget>
#include <QComboBox>
#include <QDateEdit>
#include <QDialog>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QDrag>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QInputDialog>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMessageBox>
#include <QMimeData>
#include <QMouseEvent>
#include <QPushButton>
#include <QScopeGuard>
#include <QSpinBox>
#include <QSplitter>
#include <QStyledItemDelegate>
#include <QTabWidget>
#include <QTextCharFormat>
#include <QToolButton>
#include <QTreeWidget>
#include <QTreeWidgetItemIterator>
#include <QUndoStack>
#include <QVBoxLayout>
#include <QWidgetAction>

#include <algorithm>
#include <functional>
#include <memory>

namespace {

constexpr int kShownMatches = 100;
const QString kSplitterKey = QStringLiteral("/window/diarySplitter");
constexpr float kLargeEntryCalories = 5000.0f; // an entry above this asks first
constexpr int kCategoryRole = Qt::UserRole + 1;
constexpr int kCustomRole = Qt::UserRole + 2;
constexpr int kExerciseRole = EntryDelegate::kExerciseRole;
const QList<int> kDefaultColumns = {ENERGY, CARB, FAT, PROTEIN};

QString number(double value)
{
    return QLocale::c().toString(value, 'g', 6);
}

} // namespace

DiaryView::DiaryView(QWidget *parent)
    : QWidget(parent)
    , _date(QDate::currentDate())
    , _undoStack(new QUndoStack(this))
{
    const BrandEngine &brand = BrandEngine::instance();
    // The day, with its navigation.
    auto *back = new QToolButton(this);
    back->setIcon(QIcon(brand.getPixmap(QStringLiteral("graphics.icon.backarrow"))));
    back->setToolTip(tr("Previous day"));
    auto *forward = new QToolButton(this);
    forward->setIcon(QIcon(brand.getPixmap(QStringLiteral("graphics.icon.frontarrow"))));
    forward->setToolTip(tr("Next day"));
    auto *today = new QPushButton(tr("Today"), this);
    _title = new QLabel(this);
    _title->setObjectName(QStringLiteral("dayTitle"));
    QFont titleFont = _title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.4);
    titleFont.setBold(true);
    _title->setFont(titleFont);
    connect(back, &QToolButton::clicked, this, [this] { setDate(_date.addDays(-1)); });
    connect(forward, &QToolButton::clicked, this, [this] { setDate(_date.addDays(1)); });
    connect(today, &QPushButton::clicked, this, [this] { setDate(QDate::currentDate()); });
    // A calendar whose days with entries stand out.
    auto *calendarButton = new QToolButton(this);
    calendarButton->setText(tr("Calendar"));
    calendarButton->setPopupMode(QToolButton::InstantPopup);
    // Made when first opened: the window starts faster without it.
    auto *calendarMenu = new QMenu(calendarButton);
    calendarButton->setMenu(calendarMenu);
    connect(calendarMenu, &QMenu::aboutToShow, this, [this, calendarMenu] {
        if (_calendar)
            return;
        _calendar = new QCalendarWidget(calendarMenu);
        _calendar->setObjectName(QStringLiteral("calendar"));
        auto *calendarAction = new QWidgetAction(calendarMenu);
        calendarAction->setDefaultWidget(_calendar);
        calendarMenu->addAction(calendarAction);
        connect(_calendar, &QCalendarWidget::clicked, this, [this, calendarMenu](const QDate &date) {
            calendarMenu->close();
            setDate(date);
        });
        connect(_calendar, &QCalendarWidget::currentPageChanged, this, &DiaryView::markCalendar);
        _calendar->setSelectedDate(_date);
        markCalendar();
    });
    auto *header = new QHBoxLayout;
    header->addWidget(back);
    header->addWidget(_title, 1);
    header->addWidget(calendarButton);
    header->addWidget(today);
    header->addWidget(forward);

    // The day's entries.
    _entries = new QTreeWidget(this);
    _entries->setObjectName(QStringLiteral("entries"));
    _columns = kDefaultColumns;
    _entries->setRootIsDecorated(false);
    _entries->setAlternatingRowColors(true);
    _entries->installEventFilter(new KeyFilter(this, Qt::Key_Delete, [this] { deleteSelectedEntry(); }));
    _entries->setItemDelegate(new EntryDelegate(this));
    _entries->setEditTriggers(QAbstractItemView::EditKeyPressed | QAbstractItemView::SelectedClicked);
    // F2 and a double-click edit the quantity where it stands, or the cell clicked.
    _entries->installEventFilter(new KeyFilter(this, Qt::Key_F2, [this] {
        if (QTreeWidgetItem *item = _entries->currentItem())
            _entries->editItem(item, _entries->currentColumn() == 2 ? 2 : 1);
    }));
    // Shift+F2 the serving.
    _entries->installEventFilter(new KeyFilter(
        this, Qt::Key_F2,
        [this] {
            if (QTreeWidgetItem *item = _entries->currentItem())
                _entries->editItem(item, 2);
        },
        Qt::ShiftModifier));
    menuOnShiftF10(_entries);
    connect(_entries, &QTreeWidget::itemDoubleClicked, this,
            [this](QTreeWidgetItem *item, int column) { _entries->editItem(item, column == 2 ? 2 : 1); });
    _entries->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(_entries, &QTreeWidget::customContextMenuRequested, this, [this](const QPoint &at) {
        const QTreeWidgetItem *item = _entries->itemAt(at);
        if (item && item->data(1, Qt::UserRole).isValid()) {
            QMenu groupMenu(this);
            groupMenu.addAction(tr("&Copy Meal To..."), this, [this, item] {
                _entries->setCurrentItem(const_cast<QTreeWidgetItem *>(item));
                copySelectionInDialog();
            });
            groupMenu.addAction(tr("&Save as a Meal..."), this, [this, item] {
                const int meal = item->data(1, Qt::UserRole).toInt();
                const QString name = QInputDialog::getText(this, tr("Save Meal"), tr("&Name of the meal:"));
                if (!name.trimmed().isEmpty() && saveMeal(meal, name) < 0)
                    QMessageBox::information(this, tr("Save Meal"), tr("This meal has no foods to save."));
            });
            groupMenu.exec(_entries->viewport()->mapToGlobal(at));
            return;
        }
        if (item && item->data(0, kExerciseRole).isValid()) {
            QMenu menu(this);
            menu.addAction(tr("&Change Minutes"), this,
                           [this, item] { _entries->editItem(const_cast<QTreeWidgetItem *>(item), 1); });
            menu.addAction(tr("&Delete"), this, &DiaryView::deleteSelectedEntry);
            menu.exec(_entries->viewport()->mapToGlobal(at));
            return;
        }
        if (!item || !item->data(0, Qt::UserRole).isValid())
            return;
        QMenu menu(this);
        menu.addAction(tr("&Edit..."), this, &DiaryView::editSelectedEntryInDialog);
        menu.addAction(tr("&Copy To..."), this, &DiaryView::copySelectionInDialog);
        QMenu *move = menu.addMenu(tr("&Move to"));
        for (int i = 0; i < _meal->count(); ++i) {
            const int meal = _meal->itemData(i).toInt();
            move->addAction(_meal->itemText(i), this, [this, meal] { moveSelectedEntry(meal); });
        }
        menu.addAction(tr("&Delete"), this, &DiaryView::deleteSelectedEntry);
        menu.exec(_entries->viewport()->mapToGlobal(at));
    });
    _totals = new QLabel(this);
    _totals->setObjectName(QStringLiteral("totals"));
    _ticks = new QLabel(this);
    _ticks->setObjectName(QStringLiteral("ticks"));
    _water = new QSpinBox(this);
    _water->setObjectName(QStringLiteral("water"));
    _water->setRange(0, 100);
    _water->setSuffix(tr(" glasses"));
    connect(_water, &QSpinBox::valueChanged, this, [this](int cups) {
        if (_userId >= 0 && cups != UserDB::getWater(_userId, DateConversion::fromQDate(_date)) &&
            !written(UserDB::setWater(_userId, DateConversion::fromQDate(_date), cups)))
            refresh(); // back to what the diary holds
    });
    _panel = new QWidget(this);
    _panel->setObjectName(QStringLiteral("nutrientPanel"));
    auto *footer = new QHBoxLayout(_panel);
    footer->setContentsMargins(0, 0, 0, 0);
    footer->addWidget(_ticks);
    footer->addWidget(_totals, 1);
    footer->addWidget(new QLabel(tr("Water:"), this));
    footer->addWidget(_water);
    auto *day = new QWidget(this);
    auto *dayLayout = new QVBoxLayout(day);
    dayLayout->setContentsMargins(0, 0, 0, 0);
    dayLayout->addWidget(_entries, 1);
    _status = new DayStatus(this);
    dayLayout->addWidget(_status);
    dayLayout->addWidget(_panel);

    // The food and exercise browser.
    _kind = new QComboBox(this);
    _kind->setObjectName(QStringLiteral("kind"));
    _kind->addItem(QIcon(brand.getPixmap(QStringLiteral("graphics.icon.food"))), tr("Foods"));
    _kind->addItem(QIcon(brand.getPixmap(QStringLiteral("graphics.icon.exercise"))), tr("Exercises"));
    _kind->addItem(QIcon(brand.getPixmap(QStringLiteral("graphics.icon.mealplan"))), tr("My Saved Meals"));
    connect(_kind, &QComboBox::currentIndexChanged, this, &DiaryView::setBrowsing);
    _query = new QLineEdit(this);
    _query->setObjectName(QStringLiteral("search"));
    _query->setPlaceholderText(tr("Search foods (at least 3 letters; -word leaves out)"));
    _query->setClearButtonEnabled(true);
    connect(_query, &QLineEdit::textChanged, this, &DiaryView::search);
    // Down or Enter goes on to the matches.
    const auto intoMatches = [this] {
        if (_matches->count() > 0) {
            _views->setCurrentWidget(_matches);
            _matches->setFocus();
        }
    };
    _query->installEventFilter(new KeyFilter(this, Qt::Key_Down, intoMatches));
    connect(_query, &QLineEdit::returnPressed, this, intoMatches);
    _matches = new QListWidget(this);
    _matches->setObjectName(QStringLiteral("matches"));
    _matches->setItemDelegate(new MatchDelegate(_matches));
    _matches->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    _searchNote = new QLabel(this);
    _searchNote->setObjectName(QStringLiteral("searchNote"));
    _searchNote->setWordWrap(true);
    _searchNote->hide();
    connect(_matches, &QListWidget::currentItemChanged, this,
            [this](QListWidgetItem *item) { select(item ? item->data(Qt::UserRole).toInt() : -1); });
    connect(_matches, &QListWidget::itemActivated, this, [this] { addSelectedFood(); });
    _matches->installEventFilter(new KeyFilter(this, Qt::Key_Return, [this] { addSelectedFood(); }));
    // F3: every value of the chosen food.
    for (QWidget *chooser : std::initializer_list<QWidget *>{_matches, _query})
        chooser->installEventFilter(new KeyFilter(this, Qt::Key_F3, [this] { showNutrients(); }));
    _matches->setContextMenuPolicy(Qt::CustomContextMenu);
    menuOnShiftF10(_matches);
    connect(_matches, &QListWidget::customContextMenuRequested, this, [this](const QPoint &at) {
        QListWidgetItem *item = _matches->itemAt(at);
        if (!item || _userId < 0)
            return;
        const int id = item->data(Qt::UserRole).toInt();
        QMenu menu(this);
        if (_browsing == BrowseSavedMeals) {
            menu.addAction(tr("&Rename..."), this, [this, id, item] {
                const QString name = QInputDialog::getText(this, tr("Rename Meal"), tr("&Name:"),
                                                           QLineEdit::Normal, item->text());
                if (!name.trimmed().isEmpty()) {
                    SavedMealDB::renameMeal(id, name.trimmed());
                    search(_query->text());
                }
            });
            menu.addAction(tr("&Delete"), this, [this, id, item] {
                if (QMessageBox::question(this, tr("Delete Meal"),
                                          tr("Delete the saved meal %1?").arg(item->text())) ==
                    QMessageBox::Yes) {
                    SavedMealDB::deleteMeal(id);
                    search(_query->text());
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
                               _history.reset();
                           });
        }
        menu.exec(_matches->viewport()->mapToGlobal(at));
    });
    _tree = new QTreeWidget(this);
    _tree->setObjectName(QStringLiteral("browseTree"));
    _tree->setHeaderHidden(true);
    _tree->setContextMenuPolicy(Qt::CustomContextMenu);
    menuOnShiftF10(_tree);
    connect(_tree, &QTreeWidget::itemExpanded, this, &DiaryView::fillTreeItem);
    connect(_tree, &QTreeWidget::currentItemChanged, this, [this](QTreeWidgetItem *item) {
        if (item && !item->data(0, kCategoryRole).toBool())
            select(item->data(0, Qt::UserRole).toInt());
    });
    connect(_tree, &QTreeWidget::itemActivated, this, [this](QTreeWidgetItem *item) {
        if (!item->data(0, kCategoryRole).toBool())
            addSelectedFood();
    });
    connect(_tree, &QTreeWidget::customContextMenuRequested, this, &DiaryView::treeMenu);
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
    _quantity = new QDoubleSpinBox(this);
    _quantity->setObjectName(QStringLiteral("quantity"));
    _quantity->setRange(0.01, 10000);
    _quantity->setValue(1);
    _quantity->installEventFilter(new KeyFilter(this, Qt::Key_Return, [this] { addSelectedFood(); }));
    auto *add = new QPushButton(tr("&Add to diary"), this);
    connect(add, &QPushButton::clicked, this, [this] { addSelectedFood(); });
    auto *browser = new QWidget(this);
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
    connect(_serving, &QComboBox::currentIndexChanged, this, &DiaryView::updatePreview);
    connect(_quantity, &QDoubleSpinBox::valueChanged, this, &DiaryView::updatePreview);
    auto *browserLayout = new QVBoxLayout(browser);
    browserLayout->setContentsMargins(0, 0, 0, 0);
    browserLayout->addWidget(_kind);
    browserLayout->addWidget(_query);
    browserLayout->addWidget(_searchNote);
    browserLayout->addWidget(_views, 1);
    browserLayout->addLayout(form);
    browserLayout->addWidget(add);

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
    _entries->viewport()->setAcceptDrops(true);
    _entries->viewport()->installEventFilter(this);

    _splitter = new QSplitter(this);
    _splitter->setObjectName(QStringLiteral("diarySplitter"));
    _splitter->addWidget(day);
    _splitter->addWidget(browser);
    _splitter->setStretchFactor(0, 3);
    _splitter->setStretchFactor(1, 2);
    _splitter->restoreState(LmSettings::readValue(kSplitterKey).toByteArray());
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(header);
    layout->addWidget(_splitter, 1);
    // Left to right, top to bottom: the day, then the browser as it reads.
    QWidget *const order[] = {_entries, _water, _kind, _query, _views, _meal, _serving, _quantity, add};
    for (size_t i = 1; i < std::size(order); ++i)
        setTabOrder(order[i - 1], order[i]);
}

DiaryView::~DiaryView() = default;

void DiaryView::saveLayout() const
{
    LmSettings::writeValue(kSplitterKey, _splitter->saveState());
}

void DiaryView::setUser(int user_id)
{
    _userId = user_id;
    _undoStack->clear(); // another profile's changes are not this one's to undo
    _foods = std::make_unique<FoodDB>(user_id);
    _history.reset();
    _exercises = std::make_unique<ExDB>(user_id);
    UserDB::applyDisplayUnits(user_id);
    _metric = UserDB::getSettings(user_id).measurement_units == 0;
    const int snackMode = ProfilePreferences::load(user_id).snackMode;
    _meal->clear();
    for (const int meal : {BREAKFAST, SNACK_1, LUNCH, SNACK_2, DINNER, SNACK_3})
        _meal->addItem(mealName(meal, snackMode), meal);
    _columns = columnsOf(user_id);
    _entries->setColumnCount(3 + int(_columns.size()));
    QStringList headers = {tr("Food"), tr("Quantity"), tr("Serving")};
    for (const int type : std::as_const(_columns))
        headers.append(UnitRegistry::instance().getUnitForNutrient(type)->getName());
    _entries->setHeaderLabels(headers);
    for (int c = 3; c < _entries->columnCount(); ++c)
        _entries->headerItem()->setTextAlignment(c, Qt::AlignRight | Qt::AlignVCenter);
    _panel->setVisible(!UserDB::getSettings(user_id).hideNutrientAndFluid);
    // The name takes the room; quantities and values only what they need.
    _entries->header()->setStretchLastSection(false);
    _entries->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    refresh();
    search(_query->text());
}

QList<int> DiaryView::columnsOf(int user_id)
{
    // Nutrient types separated by commas; anything else in the text is passed over.
    QList<int> columns;
    for (const QString &part :
         UserDB::diaryViewColumnSettings(user_id).split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        bool ok = false;
        const int type = part.trimmed().toInt(&ok);
        if (ok && type >= 0 && type < kNutrientCount && !columns.contains(type))
            columns.append(type);
    }
    return columns.isEmpty() ? kDefaultColumns : columns;
}

void DiaryView::saveColumns(int user_id, const QList<int> &columns)
{
    QStringList parts;
    for (const int type : columns)
        parts.append(QString::number(type));
    UserDB::setDiaryViewColumnSettings(user_id, parts.join(QLatin1Char(',')));
}

void DiaryView::setColumns(const QList<int> &columns)
{
    saveColumns(_userId, columns);
    setUser(_userId);
}

void DiaryView::setNutrientPanelHidden(bool hidden)
{
    _panel->setVisible(!hidden);
    if (_userId >= 0 && UserDB::getSettings(_userId).hideNutrientAndFluid != hidden)
        UserDB::setNutrientFluidHidden(_userId, hidden);
}

void DiaryView::setDate(const QDate &date)
{
    if (!date.isValid() || date == _date)
        return;
    _date = date;
    refresh();
    emit dayChanged(date);
}

void DiaryView::refresh()
{
    _title->setText(DateConversion::longDayName(_date));
    _entries->clear();
    if (_userId < 0)
        return;
    const QString day = DateConversion::fromQDate(_date);
    DiaryDay diary = DiaryDB().getDay(_userId, day);
    diary.foods.removeIf([](const FoodDiaryItem &f) { return f.status == STATUS_DELETED; });
    diary.exercises.removeIf([](const ExerciseDiaryItem &e) { return e.status == STATUS_DELETED; });
    const ProfilePreferences preferences = ProfilePreferences::load(_userId);
    const UnitRegistry &units = UnitRegistry::instance();
    for (const QList<int> &group : mealGroups(preferences.snackMode)) {
        auto *meal = new QTreeWidgetItem(_entries, {mealName(group.constLast(), preferences.snackMode)});
        meal->setData(1, Qt::UserRole, group.constLast());
        QFont bold = meal->font(0);
        bold.setBold(true);
        meal->setFont(0, bold);
        for (const FoodDiaryItem &food : diary.foods) {
            if (!group.contains(food.meal))
                continue;
            auto *entry = new QTreeWidgetItem(meal, {food.food_name, number(food.size), food.serv_name});
            entry->setData(0, Qt::UserRole, food.food_id);
            entry->setFlags(entry->flags() | Qt::ItemIsEditable);
            for (qsizetype c = 0; c < _columns.size(); ++c)
                entry->setText(
                    int(3 + c),
                    units.getUnitForNutrient(_columns[c])->formatValue(food.getNutrient(_columns[c])));
        }
        for (qsizetype c = 0; c < _columns.size() && meal->childCount() > 0; ++c) {
            float sum = 0;
            for (const FoodDiaryItem &food : diary.foods) {
                if (group.contains(food.meal) && food.getNutrient(_columns[c]) > 0)
                    sum += food.getNutrient(_columns[c]);
            }
            meal->setText(int(3 + c), units.getUnitForNutrient(_columns[c])->formatValue(sum));
        }
        meal->setExpanded(true);
    }
    // Exercise: what each burned, and the day's total burned on the group's row.
    if (!diary.exercises.isEmpty()) {
        auto *exercise = new QTreeWidgetItem(_entries, {mealName(EXERCISE, preferences.snackMode)});
        QFont bold = exercise->font(0);
        bold.setBold(true);
        exercise->setFont(0, bold);
        const int energyColumn = 3 + int(_columns.indexOf(ENERGY));
        const UnitDescriptor &energy = *units.getUnit(UNIT_ENERGY);
        for (const ExerciseDiaryItem &e : diary.exercises) {
            auto *entry = new QTreeWidgetItem(exercise, {e.name, number(e.duration), tr("minutes")});
            entry->setData(0, kExerciseRole, e.ex_id);
            entry->setFlags(entry->flags() | Qt::ItemIsEditable);
            entry->setToolTip(0, tr("%1: %2 burned").arg(e.name, energy.formatValueWithUnit(e.energy())));
            if (energyColumn >= 3)
                entry->setText(energyColumn, energy.formatValue(e.energy()));
        }
        if (energyColumn >= 3)
            exercise->setText(energyColumn, energy.formatValue(diary.total(EXERCISE, ENERGY)));
        exercise->setExpanded(true);
    }

    // Numbers line up on the right; a name cut short shows whole in its tooltip.
    for (QTreeWidgetItemIterator it(_entries); *it; ++it) {
        for (int c = 1; c < _entries->columnCount(); ++c) {
            if (c != 2)
                (*it)->setTextAlignment(c, Qt::AlignRight | Qt::AlignVCenter);
        }
        if ((*it)->toolTip(0).isEmpty())
            (*it)->setToolTip(0, (*it)->text(0));
    }
    // Measured once per day shown; a resize mode would measure again on every item added.
    for (int c = 1; c < _entries->columnCount(); ++c)
        _entries->resizeColumnToContents(c);

    const Targets targets = UserDB::getTargets(_userId, day);
    _status->setStanding(dayStanding(diary, targets.values, _columns));
    const float net = diary.total(ALL_MEALS, ENERGY);
    const UnitDescriptor &energy = *units.getUnit(UNIT_ENERGY);
    QString totals =
        tr("%1: <b>%2</b>").arg(QLocale().dayName(_date.dayOfWeek()), energy.formatSignedWithUnit(net));
    if (targets.values[ENERGY] > 0)
        totals += tr(" of %1").arg(energy.formatValueWithUnit(targets.values[ENERGY]));
    _totals->setText(totals);
    float minutes = 0;
    for (const ExerciseDiaryItem &e : diary.exercises)
        minutes += e.duration;
    if (targets.values[ENERGY] > 0) {
        const GreenTicks ticks =
            computeGreenTicks({net, float(targets.values[ENERGY]), minutes, float(preferences.exerciseTarget),
                               preferences.budgetMode},
                              energy);
        _ticks->setPixmap(BrandEngine::instance().getPixmap(ticks.pictureId()));
        _ticks->setToolTip(ticks.tooltip);
        _ticks->setProperty("ticks", ticks.pictureId());
    } else {
        _ticks->clear();
        _ticks->setToolTip(tr("Set an energy target to earn green ticks."));
    }
    const QSignalBlocker blocker(_water);
    _water->setValue(UserDB::getWater(_userId, day));
    if (_calendar) {
        const QSignalBlocker calendarBlocker(_calendar);
        _calendar->setSelectedDate(_date);
        markCalendar();
    }
}

void DiaryView::markCalendar()
{
    if (_userId < 0 || !_calendar)
        return;
    _calendar->setDateTextFormat(QDate(), QTextCharFormat()); // clears every mark
    const QDate first(_calendar->yearShown(), _calendar->monthShown(), 1);
    QTextCharFormat marked;
    marked.setFontWeight(QFont::Bold);
    marked.setForeground(palette().color(QPalette::Link));
    for (const QString &day :
         DiaryDB().getDatesWithEntries(_userId, first.addDays(-7), first.addDays(45), false))
        _calendar->setDateTextFormat(QDate::fromString(day, QStringLiteral("yyyyMMdd")), marked);
}

void DiaryView::setBrowsing(int what)
{
    _browsing = what;
    _history.reset();
    const bool exercises = what == BrowseExercises;
    _meal->setEnabled(!exercises);
    _serving->setEnabled(what == BrowseFoods);
    _quantityLabel->setText(exercises ? tr("&Minutes:") : tr("&Quantity:"));
    _quantity->setEnabled(what != BrowseSavedMeals);
    _quantity->setValue(exercises ? 30 : 1);
    if (_kind->currentIndex() != what)
        _kind->setCurrentIndex(what);
    search(_query->text());
}

int DiaryView::saveMeal(int meal, const QString &name)
{
    if (_userId < 0 || name.trimmed().isEmpty())
        return -1;
    SavedMeal saved;
    saved.user_id = _userId;
    saved.name = name.trimmed();
    const QList<int> group = [&] {
        for (const QList<int> &g : mealGroups(ProfilePreferences::load(_userId).snackMode)) {
            if (g.contains(meal))
                return g;
        }
        return QList<int>{meal};
    }();
    for (const FoodDiaryItem &food : DiaryDB().getDay(_userId, DateConversion::fromQDate(_date)).foods) {
        if (group.contains(food.meal) && food.status == STATUS_LIVE)
            saved.foods.append(food);
    }
    if (saved.foods.isEmpty())
        return -1;
    const int id = SavedMealDB::createMeal(saved);
    if (_browsing == BrowseSavedMeals)
        search(_query->text());
    return id;
}

void DiaryView::search(const QString &query)
{
    _matches->clear();
    _searchNote->hide();
    select(-1);
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
        return;
    }
    // Reference items and the profile's own, best first, with what one of each brings.
    if (!_foods || !_foods->staticDB() || !_exercises->staticDB())
        return;
    const bool exercises = _browsing == BrowseExercises;
    if (!_history)
        _history = loadSearchHistory(_userId, exercises);
    const ItemSearchResult result =
        exercises
            ? searchItems(*_exercises->staticDB(), _exercises->dynamicDB(), query, *_history, kShownMatches)
            : searchItems(*_foods->staticDB(), _foods->dynamicDB(), query, *_history, kShownMatches);
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
            energy = foodEnergy(found.id);
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
    const QString note = result.searched && result.items.isEmpty()
                             ? tr("No matches for \"%1\"").arg(query.trimmed())
                             : result.closeMatchNote(query.trimmed());
    _searchNote->setText(note);
    _searchNote->setVisible(!note.isEmpty());
}

bool DiaryView::eventFilter(QObject *watched, QEvent *event)
{
    if (watched != _entries->viewport())
        return QWidget::eventFilter(watched, event);
    if (event->type() == QEvent::DragEnter || event->type() == QEvent::DragMove) {
        auto *drag = static_cast<QDropEvent *>(event);
        if (!drag->mimeData()->hasFormat(DragStarter::kItemMime))
            return false;
        drag->acceptProposedAction();
        return true;
    }
    if (event->type() != QEvent::Drop)
        return QWidget::eventFilter(watched, event);
    auto *drop = static_cast<QDropEvent *>(event);
    const QList<QByteArray> item = drop->mimeData()->data(DragStarter::kItemMime).split(' ');
    const QTreeWidgetItem *target = _entries->itemAt(drop->position().toPoint());
    while (target && target->parent())
        target = target->parent();
    if (item.size() != 2)
        return false;
    dropItem(QString::fromLatin1(item.at(0)), item.at(1).toInt(),
             target ? target->data(1, Qt::UserRole).toInt() : 0);
    drop->acceptProposedAction();
    return true;
}

bool DiaryView::dropItem(const QString &kind, int id, int meal)
{
    const int browse = kind == QLatin1String("exercise") ? BrowseExercises
                       : kind == QLatin1String("meal")   ? BrowseSavedMeals
                                                         : BrowseFoods;
    if (browse != _browsing)
        return false; // drags come from the browser as it is
    if (meal > 0)
        _meal->setCurrentIndex(_meal->findData(meal));
    select(id);
    return addSelectedFood();
}

void DiaryView::select(int id)
{
    const bool another = id != _selectedId;
    _selectedId = id;
    const float usual = updateServings();
    // Another food starts at one of its usual serving: a quantity typed for the last one
    // (200 g of milk) would mean something else for this one (200 bananas).
    if (another && usual > 0)
        _quantity->setValue(usual);
    updatePreview();
}

void DiaryView::populateTree()
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

void DiaryView::fillTreeItem(QTreeWidgetItem *parent)
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

void DiaryView::treeMenu(const QPoint &at)
{
    QTreeWidgetItem *item = _tree->itemAt(at);
    if (!item || _userId < 0)
        return;
    const int id = item->data(0, Qt::UserRole).toInt();
    const bool category = item->data(0, kCategoryRole).toBool();
    const bool customItem = item->data(0, kCustomRole).toBool();
    const bool exercises = _browsing == BrowseExercises;
    DynamicDB *custom = browsedCustom();
    const bool root = id == kSharedRootId || id == DynamicDB::rootIdOf(_userId);
    QMenu menu(this);
    if (category && customItem) {
        if (!exercises) {
            menu.addAction(tr("New &Food Here..."), this, [this, id] { newCustomFood(id); });
        } else {
            menu.addAction(tr("New E&xercise Here..."), this, [this, id] {
                const QString name = QInputDialog::getText(this, tr("New Exercise"), tr("&Name:"));
                if (name.trimmed().isEmpty())
                    return;
                bool ok = false;
                const double met = QInputDialog::getDouble(
                    this, tr("New Exercise"), tr("&MET value (1 is sitting still, 8 is running):"), 4, 0.5,
                    30, 1, &ok);
                if (!ok)
                    return;
                makeRootRow(id);
                _exercises->dynamicDB()->addExercise(id, name.trimmed(),
                                                     float(met) * kCaloriesPerMetMinuteKg);
                search(_query->text());
            });
        }
        menu.addAction(tr("New &Category..."), this, [this, id] {
            const QString name = QInputDialog::getText(this, tr("New Category"), tr("&Name:"));
            if (!name.trimmed().isEmpty())
                newCustomCategory(id, name.trimmed());
        });
        if (!root) {
            menu.addAction(tr("&Rename..."), this, [this, custom, id, item] {
                const QString name = QInputDialog::getText(this, tr("Rename Category"), tr("&Name:"),
                                                           QLineEdit::Normal, item->text(0));
                if (!name.trimmed().isEmpty()) {
                    custom->renameCategory(id, name.trimmed());
                    search(_query->text());
                }
            });
            menu.addAction(tr("&Move To..."), this, [this, id] { moveCustomInDialog(id, true); });
            menu.addAction(tr("&Delete"), this, [this, custom, id, item] {
                if (QMessageBox::question(this, tr("Delete Category"),
                                          tr("Delete %1 with everything in it?").arg(item->text(0))) ==
                    QMessageBox::Yes) {
                    custom->deleteCategory(id);
                    search(_query->text());
                }
            });
        }
    } else if (!category && customItem) {
        menu.addAction(tr("&Edit..."), this, [this, id, exercises] {
            if (!exercises) {
                CustomFoodDialog dialog(_foods->dynamicDB(), id, -1, nullptr, this);
                if (dialog.exec() == QDialog::Accepted)
                    search(_query->text());
                return;
            }
            Exercise exercise;
            _exercises->dynamicDB()->exercise(id, &exercise);
            const QString name = QInputDialog::getText(this, tr("Edit Exercise"), tr("&Name:"),
                                                       QLineEdit::Normal, exercise.name);
            if (name.trimmed().isEmpty())
                return;
            bool ok = false;
            const double met =
                QInputDialog::getDouble(this, tr("Edit Exercise"), tr("&MET value:"),
                                        exercise.scale / kCaloriesPerMetMinuteKg, 0.5, 30, 1, &ok);
            if (ok) {
                _exercises->dynamicDB()->updateExercise(id, name.trimmed(),
                                                        float(met) * kCaloriesPerMetMinuteKg);
                search(_query->text());
            }
        });
        menu.addAction(tr("&Move To..."), this, [this, id] { moveCustomInDialog(id, false); });
        menu.addAction(tr("&Delete"), this, [this, custom, id, item] {
            if (QMessageBox::question(this, tr("Delete"), tr("Delete %1?").arg(item->text(0))) !=
                QMessageBox::Yes)
                return;
            custom->deleteItem(id);
            search(_query->text());
        });
    } else if (!category && !exercises) {
        menu.addAction(tr("&Copy to My Foods..."), this, [this, id] {
            select(id);
            copySelectedToCustom();
        });
    }
    if (menu.isEmpty())
        return;
    menu.exec(_tree->viewport()->mapToGlobal(at));
}

DynamicDB *DiaryView::browsedCustom() const
{
    return _browsing == BrowseExercises ? static_cast<DynamicDB *>(_exercises->dynamicDB())
                                        : static_cast<DynamicDB *>(_foods->dynamicDB());
}

const DynamicDB::Tables &DiaryView::browsedTables() const
{
    return _browsing == BrowseExercises ? ExDBDynamic::kTables : FoodDBDynamic::kTables;
}

void DiaryView::makeRootRow(int category)
{
    // The roots are in the index from the start; their rows only once something is filed there.
    if (category == kSharedRootId || category == DynamicDB::rootIdOf(_userId))
        DynamicDB::userRootId(browsedTables(), category == kSharedRootId ? -1 : _userId);
}

QList<QPair<int, QString>> DiaryView::customMoveTargets(int id, bool category) const
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
    walk(DynamicDB::rootIdOf(_userId), tr("My %1").arg(base));
    walk(kSharedRootId, tr("Shared %1").arg(base));
    return targets;
}

bool DiaryView::moveCustom(int id, bool category, int target)
{
    DynamicDB *custom = browsedCustom();
    const auto targets = customMoveTargets(id, category);
    if (!std::any_of(targets.cbegin(), targets.cend(), [target](const auto &t) { return t.first == target; }))
        return false;
    makeRootRow(target);
    const bool moved = category ? custom->moveCategory(id, target) : custom->moveItem(id, target);
    search(_query->text());
    return moved;
}

void DiaryView::moveCustomInDialog(int id, bool category)
{
    const auto targets = customMoveTargets(id, category);
    QStringList paths;
    for (const auto &target : targets)
        paths.append(target.second);
    bool ok = false;
    const QString chosen = QInputDialog::getItem(this, tr("Move"), tr("&Move to:"), paths, 0, false, &ok);
    if (ok && paths.contains(chosen))
        moveCustom(id, category, targets[paths.indexOf(chosen)].first);
}

int DiaryView::newCustomCategory(int parent, const QString &name)
{
    makeRootRow(parent);
    const int id = browsedCustom()->addCategory(parent, name);
    search(_query->text());
    return id;
}

int DiaryView::newCustomFood(int category)
{
    if (_userId < 0)
        return -1;
    if (category < 0)
        category = FoodDBDynamic::userRootId(_userId);
    CustomFoodDialog dialog(_foods->dynamicDB(), -1, category, nullptr, this);
    if (dialog.exec() != QDialog::Accepted)
        return -1;
    search(_query->text());
    return dialog.foodId();
}

int DiaryView::copySelectedToCustom()
{
    if (_userId < 0 || _browsing != BrowseFoods || _selectedId < 0 || FoodDB::isCustom(_selectedId) ||
        _serving->currentIndex() < 0)
        return -1;
    // The reference food as one serving of the size chosen, with its values for that.
    FoodDiaryItem item;
    item.changeFood(_selectedId);
    item.setServing(_serving->currentData().toInt());
    item.setSize(float(_quantity->value()));
    Food prefill;
    prefill.name = item.food_name;
    prefill.values = Food::fromNutrients(item.nutrients());
    const QString serving = item.size == 1.0f
                                ? item.serv_name
                                : QStringLiteral("%1 x %2").arg(number(double(item.size)), item.serv_name);
    prefill.servings = {{serving, 0, 1.0f}};
    CustomFoodDialog dialog(_foods->dynamicDB(), -1, FoodDBDynamic::userRootId(_userId), &prefill, this);
    if (dialog.exec() != QDialog::Accepted)
        return -1;
    search(_query->text());
    return dialog.foodId();
}

float DiaryView::updateServings()
{
    _serving->clear();
    if (_selectedId < 0 || _browsing != BrowseFoods || !_foods->contains(_selectedId))
        return 0;
    FoodDiaryItem item;
    item.changeFood(_selectedId);
    QList<FoodServing> servings = item.getServings();
    if (_metric) {
        // Metric profiles see their own measure first: millilitres for a liquid, else grams.
        for (const int id : {kMillilitreServing, -3, -1}) {
            const auto own = std::find_if(servings.cbegin(), servings.cend(),
                                          [id](const FoodServing &s) { return s.id == id; });
            if (own != servings.cend()) {
                servings.move(own - servings.cbegin(), 0);
                break;
            }
        }
    }
    for (const FoodServing &serving : servings)
        _serving->addItem(serving.name, serving.id);
    // The serving the matches list counts in.
    const ServingChoice usual = preferredServing(servings);
    _serving->setCurrentIndex(std::max(0, _serving->findData(usual.servingId)));
    return usual.size;
}

void DiaryView::updatePreview()
{
    QString text;
    const UnitRegistry &units = UnitRegistry::instance();
    const UnitDescriptor &energy = *units.getUnit(UNIT_ENERGY);
    if (_selectedId >= 0 && _browsing == BrowseFoods && _serving->currentIndex() >= 0) {
        FoodDiaryItem item;
        item.changeFood(_selectedId);
        item.setServing(_serving->currentData().toInt());
        item.setSize(float(_quantity->value()));
        QStringList parts = {energy.formatValueWithUnit(item.getNutrient(ENERGY))};
        for (const int type : {CARB, FAT, PROTEIN})
            parts.append(units.getUnitForNutrient(type)->getName() + QLatin1Char(' ') +
                         units.getUnitForNutrient(type)->formatValueWithUnit(item.getNutrient(type)));
        text = parts.join(QStringLiteral(" \u00b7 "));
    } else if (_selectedId >= 0 && _browsing == BrowseExercises) {
        Exercise exercise;
        const auto weight = DiaryEdits::weightInForce(_userId, DateConversion::fromQDate(_date));
        if (weight && _exercises->exercise(_selectedId, &exercise))
            text =
                tr("%1 burned")
                    .arg(energy.formatValueWithUnit(double(exercise.scale) * *weight * _quantity->value()));
    }
    _preview->setText(text);
}

bool DiaryView::showNutrients()
{
    if (_selectedId < 0 || _browsing != BrowseFoods || _serving->currentIndex() < 0)
        return false;
    NutrientsDialog(_selectedId, _serving->currentData().toInt(), float(_quantity->value()), this).exec();
    return true;
}

bool DiaryView::addSelectedFood()
{
    const bool current = _selectedId >= 0;
    if (current && _userId >= 0 && _browsing == BrowseSavedMeals) {
        const QList<FoodDiaryItem> added = SavedMealDB::addMealToDay(
            _selectedId, _userId, DateConversion::fromQDate(_date), _meal->currentData().toInt());
        if (added.isEmpty())
            return false;
        record(new DiaryCommand(
            DiaryCommand::AddsAndRemoves,
            tr("Add %1").arg(_matches->currentItem() ? _matches->currentItem()->text() : tr("Saved Meal")),
            {}, {added, {}}, changed()));
        refresh();
        return true;
    }
    if (current && _userId >= 0 && _browsing == BrowseExercises) {
        Exercise exercise;
        if (!_exercises->exercise(_selectedId, &exercise))
            return false;
        // The energy burned follows the body weight in force that day.
        ExerciseDiaryItem entry;
        const DiaryEdits::Logged logged =
            DiaryEdits::logExercise(_userId, DateConversion::fromQDate(_date), exercise.name, exercise.scale,
                                    float(_quantity->value()), &entry);
        if (logged == DiaryEdits::Logged::NoWeight) {
            QMessageBox::information(
                this, tr("Exercise"),
                tr("Record your weight in a check-in first: the energy an exercise burns "
                   "depends on it."));
            return false;
        }
        if (!written(logged == DiaryEdits::Logged::Stored))
            return false;
        record(new DiaryCommand(DiaryCommand::AddsAndRemoves, tr("Add %1").arg(entry.name), {}, {{}, {entry}},
                                changed()));
        refresh();
        return true;
    }
    if (!current || _userId < 0 || _serving->currentIndex() < 0)
        return false;
    // What it would add, asked about first when it is a lot (150 cups of rice).
    FoodDiaryItem item;
    item.changeFood(_selectedId);
    item.setServing(_serving->currentData().toInt());
    item.setSize(float(_quantity->value()));
    if (const float energy = item.getNutrient(ENERGY); energy > kLargeEntryCalories) {
        const UnitDescriptor &unit = *UnitRegistry::instance().getUnit(UNIT_ENERGY);
        if (QMessageBox::question(this, tr("Add to Diary"),
                                  tr("%1 x %2 of %3 is %4. Add it?")
                                      .arg(number(_quantity->value()), _serving->currentText(),
                                           item.food_name, unit.formatValueWithUnit(energy))) !=
            QMessageBox::Yes)
            return false;
    }
    if (!written(DiaryEdits::logFood(_userId, DateConversion::fromQDate(_date), _meal->currentData().toInt(),
                                     _selectedId, item.serving_id, item.size, &item)))
        return false;
    record(new DiaryCommand(DiaryCommand::AddsAndRemoves, tr("Add %1").arg(item.food_name), {}, {{item}, {}},
                            changed()));
    refresh();
    return true;
}

int DiaryView::copyFoods(const QList<FoodDiaryItem> &foods, const QDate &target, int meal)
{
    const QString targetDay = DateConversion::fromQDate(target);
    const DiaryDB diary;
    QList<FoodDiaryItem> copied;
    LmWriteTransaction write;
    bool ok = write.isOpen();
    for (FoodDiaryItem food : foods) {
        if (!ok || food.status == STATUS_DELETED)
            continue;
        food.food_id = -1;
        food.setDate(targetDay);
        if (meal > 0)
            food.meal = meal;
        ok = diary.addFoodEntry(food);
        copied.append(food);
    }
    if (!written(write.commit(ok)))
        return 0;
    record(new DiaryCommand(DiaryCommand::AddsAndRemoves, tr("Copy %n Entries", nullptr, int(copied.size())),
                            {}, {copied, {}}, changed()));
    refresh();
    return int(copied.size());
}

int DiaryView::copySelection(const QDate &target, int meal)
{
    const QTreeWidgetItem *current = _entries->currentItem();
    if (!current || _userId < 0 || !target.isValid())
        return 0;
    const DiaryDB diary;
    QList<FoodDiaryItem> foods;
    if (current->data(0, Qt::UserRole).isValid()) {
        foods.append(diary.getFoodEntry(current->data(0, Qt::UserRole).toInt()));
    } else if (current->data(1, Qt::UserRole).isValid()) {
        for (int i = 0; i < current->childCount(); ++i)
            foods.append(diary.getFoodEntry(current->child(i)->data(0, Qt::UserRole).toInt()));
    }
    return copyFoods(foods, target, meal);
}

void DiaryView::copySelectionInDialog()
{
    QDialog dialog(this);
    dialog.setWindowTitle(tr("Copy To"));
    auto *day = new QDateEdit(_date.addDays(1), &dialog);
    day->setCalendarPopup(true);
    day->setDisplayFormat(QStringLiteral("yyyy-MM-dd"));
    auto *meal = new QComboBox(&dialog);
    meal->addItem(tr("The same meal"), 0);
    for (int i = 0; i < _meal->count(); ++i)
        meal->addItem(_meal->itemText(i), _meal->itemData(i));
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
    connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    auto *form = new QFormLayout(&dialog);
    form->addRow(tr("&Day:"), day);
    form->addRow(tr("&Meal:"), meal);
    form->addRow(buttons);
    if (dialog.exec() == QDialog::Accepted)
        copySelection(day->date(), meal->currentData().toInt());
}

int DiaryView::copyDay(const QDate &target, CopyMode mode)
{
    if (_userId < 0 || !target.isValid() || target == _date)
        return 0;
    const QString targetDay = DateConversion::fromQDate(target);
    if (mode == AskFirst && DiaryEdits::hasEntries(_userId, targetDay)) {
        QMessageBox box(QMessageBox::Question, tr("Copy Day"),
                        tr("%1 has entries already. Add this day's entries to them, or replace them?")
                            .arg(DateConversion::longDayName(target)),
                        QMessageBox::Cancel, this);
        QPushButton *add = box.addButton(tr("&Add to Them"), QMessageBox::AcceptRole);
        QPushButton *replace = box.addButton(tr("&Replace Them"), QMessageBox::DestructiveRole);
        box.setDefaultButton(add);
        box.exec();
        if (box.clickedButton() != add && box.clickedButton() != replace)
            return 0;
        mode = box.clickedButton() == replace ? Replace : Add;
    }
    DiaryEdits::DayCopy copy;
    if (!written(DiaryEdits::copyDay(_userId, DateConversion::fromQDate(_date), targetDay, mode == Replace,
                                     &copy)))
        return 0;
    record(
        new DiaryCommand(DiaryCommand::AddsAndRemoves, tr("Copy Day"), copy.removed, copy.added, changed()));
    return int(copy.added.foods.size() + copy.added.exercises.size());
}

bool DiaryView::written(bool ok)
{
    if (!ok)
        QMessageBox::warning(
            this, tr("Diary"),
            tr("The diary could not be written (%1). Nothing was changed.").arg(LmSqlDb::lastErrorText()));
    return ok;
}

void DiaryView::record(QUndoCommand *command)
{
    _undoStack->push(command);
    _history.reset(); // the diary changed: what the profile eats may have too
}

std::function<void()> DiaryView::changed()
{
    return [this] {
        _history.reset();
        refresh();
    };
}

bool DiaryView::undo()
{
    if (!_undoStack->canUndo())
        return false;
    _undoStack->undo();
    return true;
}

bool DiaryView::redo()
{
    if (!_undoStack->canRedo())
        return false;
    _undoStack->redo();
    return true;
}

bool DiaryView::canUndo() const
{
    return _undoStack->canUndo();
}

void DiaryView::deleteSelectedEntry()
{
    const QTreeWidgetItem *current = _entries->currentItem();
    if (current && current->data(0, kExerciseRole).isValid()) {
        const DiaryDB diary;
        const ExerciseDiaryItem removed = diary.getExerciseEntry(current->data(0, kExerciseRole).toInt());
        if (!written(diary.removeExerciseEntry(removed.ex_id)))
            return;
        record(new DiaryCommand(DiaryCommand::AddsAndRemoves, tr("Delete %1").arg(removed.name),
                                {{}, {removed}}, {}, changed()));
        refresh();
        return;
    }
    if (!current || !current->data(0, Qt::UserRole).isValid())
        return;
    const DiaryDB diary;
    const FoodDiaryItem removed = diary.getFoodEntry(current->data(0, Qt::UserRole).toInt());
    if (!written(diary.removeFoodEntry(removed.food_id)))
        return;
    // Undone by a copy of the entry: the deleted row stays for the devices to learn of it.
    record(new DiaryCommand(DiaryCommand::AddsAndRemoves, tr("Delete %1").arg(removed.food_name),
                            {{removed}, {}}, {}, changed()));
    refresh();
}

bool DiaryView::editSelectedEntry(int servingId, float quantity)
{
    const QTreeWidgetItem *current = _entries->currentItem();
    return current && current->data(0, Qt::UserRole).isValid() &&
           editEntry(current->data(0, Qt::UserRole).toInt(), servingId, quantity);
}

bool DiaryView::editExerciseEntry(int exerciseId, float minutes)
{
    const DiaryDB diary;
    ExerciseDiaryItem entry = diary.getExerciseEntry(exerciseId);
    if (minutes <= 0 || entry.ex_id != exerciseId || entry.duration == minutes)
        return false;
    const ExerciseDiaryItem before = entry;
    entry.duration = minutes;
    if (!written(diary.updateExerciseEntry(entry)))
        return false;
    record(new DiaryCommand(DiaryCommand::Updates, tr("Change %1").arg(entry.name), {{}, {before}},
                            {{}, {entry}}, changed()));
    refresh();
    return true;
}

bool DiaryView::servingsKnown(FoodDiaryItem &entry) const
{
    return entry.ref_id >= 0 && _foods && _foods->contains(entry.ref_id) && entry.loadFoodInfo(true);
}

bool DiaryView::editEntry(int entryId, int servingId, float quantity)
{
    if (quantity <= 0)
        return false;
    const DiaryDB diary;
    FoodDiaryItem entry = diary.getFoodEntry(entryId);
    if (entry.food_id != entryId)
        return false;
    const FoodDiaryItem before = entry;
    if (servingsKnown(entry)) {
        entry.setServing(servingId);
        entry.setSize(quantity);
    } else {
        // A food no longer in the database: its stored values scale with the quantity.
        entry.scale(quantity / entry.size);
        entry.size = quantity;
    }
    if (!written(diary.updateFoodEntry(entry.food_id, entry)))
        return false;
    record(new DiaryCommand(DiaryCommand::Updates, tr("Change %1").arg(entry.food_name), {{before}, {}},
                            {{entry}, {}}, changed()));
    refresh();
    return true;
}

bool DiaryView::moveSelectedEntry(int meal)
{
    const QTreeWidgetItem *current = _entries->currentItem();
    if (!current || !current->data(0, Qt::UserRole).isValid())
        return false;
    const DiaryDB diary;
    FoodDiaryItem entry = diary.getFoodEntry(current->data(0, Qt::UserRole).toInt());
    const FoodDiaryItem before = entry;
    entry.meal = meal;
    if (!written(diary.updateFoodEntry(entry.food_id, entry)))
        return false;
    record(new DiaryCommand(DiaryCommand::Updates, tr("Move %1").arg(entry.food_name), {{before}, {}},
                            {{entry}, {}}, changed()));
    refresh();
    return true;
}

void DiaryView::editSelectedEntryInDialog()
{
    const QTreeWidgetItem *current = _entries->currentItem();
    if (!current || !current->data(0, Qt::UserRole).isValid())
        return;
    FoodDiaryItem entry = DiaryDB().getFoodEntry(current->data(0, Qt::UserRole).toInt());
    QDialog dialog(this);
    dialog.setWindowTitle(entry.food_name);
    auto *serving = new QComboBox(&dialog);
    if (servingsKnown(entry)) {
        for (const FoodServing &s : entry.getServings())
            serving->addItem(s.name, s.id);
        serving->setCurrentIndex(serving->findData(entry.serving_id));
    } else {
        serving->addItem(entry.serv_name, entry.serving_id);
        serving->setEnabled(false);
    }
    auto *quantity = new QDoubleSpinBox(&dialog);
    quantity->setRange(0.01, 10000);
    quantity->setValue(entry.size);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
    connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    auto *form = new QFormLayout(&dialog);
    form->addRow(tr("&Serving:"), serving);
    form->addRow(tr("&Quantity:"), quantity);
    form->addRow(buttons);
    if (dialog.exec() == QDialog::Accepted)
        editSelectedEntry(serving->currentData().toInt(), float(quantity->value()));
}
