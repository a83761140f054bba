#include "ui/diaryview.h"

#include "app/lmsettings.h"
#include "brand/brandengine.h"
#include "db/diarydb.h"
#include "db/diaryedits.h"
#include "db/goals.h"
#include "db/recipedb.h"
#include "db/userdb.h"
#include "model/dateconversion.h"
#include "model/daystanding.h"
#include "model/greenticks.h"
#include "model/unitdescriptor.h"
#include "ui/daystatus.h"
#include "ui/diarycommands.h"

#include <QCalendarWidget>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QSpinBox>
#include <QSplitter>
#include <QTextCharFormat>
#include <QToolButton>
#include <QVBoxLayout>
#include <QWidgetAction>

namespace {

const QString kSplitterKey = QStringLiteral("/window/diarySplitter");

} // namespace

DiaryView::DiaryView(QWidget *parent)
    : QWidget(parent)
    , _date(QDate::currentDate())
    , _undo(new DiaryUndoStack(this))
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

    // The day's entries, where it stands, the totals and the water.
    _day = new DayView(_undo, this);
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
            !diaryWritten(this, UserDB::setWater(_userId, DateConversion::fromQDate(_date), cups)))
            refresh(); // back to what the diary holds
        else
            _status->setWater(cups, _waterGoal);
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
    dayLayout->addWidget(_day, 1);
    _status = new DayStatus(this);
    dayLayout->addWidget(_status);
    dayLayout->addWidget(_panel);

    _browser = new ItemBrowser(_undo, this);
    _browser->setDate(_date);
    connect(_day, &DayView::itemDropped, _browser, &ItemBrowser::dropItem);
    connect(_day, &DayView::mealSaved, _browser, &ItemBrowser::savedMealsChanged);
    connect(_undo, &DiaryUndoStack::diaryChanged, this, [this] {
        _browser->forgetHistory(); // what the profile eats may have changed too
        _day->refresh();
        refresh();
    });

    _splitter = new QSplitter(this);
    _splitter->setObjectName(QStringLiteral("diarySplitter"));
    _splitter->addWidget(day);
    _splitter->addWidget(_browser);
    _splitter->setStretchFactor(0, 3);
    _splitter->setStretchFactor(1, 2);
    _splitter->restoreState(LmSettings::readValue(kSplitterKey).toByteArray());
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(header);
    layout->addWidget(_splitter, 1);
    // Left to right, top to bottom: the day, then the browser as it reads.
    const QList<QWidget *> order = QList<QWidget *>{_day, _water} + _browser->tabOrder();
    for (qsizetype i = 1; i < order.size(); ++i)
        setTabOrder(order[i - 1], order[i]);
}

DiaryView::~DiaryView() = default;

void DiaryView::saveLayout() const
{
    if (const QByteArray state = _splitter->saveState(); LmSettings::readValue(kSplitterKey).toByteArray() != state)
        LmSettings::writeValue(kSplitterKey, state);
}

void DiaryView::reload()
{
    _waterGoal = Goals::waterGoal(_userId);
    _day->refresh();
    refresh();
}

void DiaryView::setUser(int user_id)
{
    _userId = user_id;
    _waterGoal = Goals::waterGoal(user_id);
    _undo->clear(); // another profile's changes are not this one's to undo
    UserDB::applyDisplayUnits(user_id);
    _browser->setUser(user_id);
    _panel->setVisible(!UserDB::getSettings(user_id).hideNutrientAndFluid);
    _day->setDay(user_id, _date, DayTable::columnsOf(user_id));
    refresh();
}

QList<int> DiaryView::columns() const
{
    return _userId < 0 ? DayTable::kDefaultColumns : _day->day()->columns();
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
    _browser->setDate(date);
    _day->setDate(date);
    refresh();
    emit dayChanged(date);
}

void DiaryView::refresh()
{
    _title->setText(DateConversion::longDayName(_date));
    if (_userId < 0)
        return;
    const DayTable &table = _day->day()->table();
    _status->setStanding(table.standing());
    _totals->setText(table.totalsText(true));
    if (const std::optional<GreenTicks> ticks = table.ticks()) {
        _ticks->setPixmap(BrandEngine::instance().getPixmap(ticks->pictureId()));
        _ticks->setToolTip(ticks->tooltip);
        _ticks->setProperty("ticks", ticks->pictureId());
    } else {
        _ticks->clear();
        _ticks->setToolTip(tr("Set an energy target to earn green ticks."));
    }
    const QSignalBlocker blocker(_water);
    _water->setValue(UserDB::getWater(_userId, DateConversion::fromQDate(_date)));
    _status->setWater(_water->value(), _waterGoal);
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

bool DiaryView::logRecipe(const Recipe &recipe, int meal, double portions, double grams)
{
    FoodDiaryItem entry;
    if (_userId < 0 || !diaryWritten(this, RecipeDB::log(_userId, DateConversion::fromQDate(_date), meal,
                                                         recipe, portions, grams, &entry)))
        return false;
    _undo->record(DiaryCommand::AddsAndRemoves, tr("Add %1").arg(recipe.name), {}, {{entry}, {}});
    return true;
}

bool DiaryView::logFoods(const QList<FoodDiaryItem> &foods, int meal)
{
    QList<FoodDiaryItem> added;
    if (_userId < 0 || foods.isEmpty() ||
        !diaryWritten(this,
                      DiaryEdits::addFoods(foods, _userId, DateConversion::fromQDate(_date), meal, &added)))
        return false;
    _undo->record(DiaryCommand::AddsAndRemoves,
                  added.size() == 1 ? tr("Add %1").arg(added.constFirst().food_name)
                                    : tr("Add %n Entries", nullptr, int(added.size())),
                  {}, {added, {}});
    return true;
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
    if (!diaryWritten(this, DiaryEdits::copyDay(_userId, DateConversion::fromQDate(_date), targetDay,
                                                mode == Replace, &copy)))
        return 0;
    _undo->record(DiaryCommand::AddsAndRemoves, tr("Copy Day"), copy.removed, copy.added);
    return int(copy.added.foods.size() + copy.added.exercises.size());
}

QUndoStack *DiaryView::undoStack() const
{
    return _undo;
}

bool DiaryView::undo()
{
    if (!_undo->canUndo())
        return false;
    _undo->undo();
    return true;
}

bool DiaryView::redo()
{
    if (!_undo->canRedo())
        return false;
    _undo->redo();
    return true;
}

bool DiaryView::canUndo() const
{
    return _undo->canUndo();
}
