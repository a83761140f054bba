#include "ui/nutrientsdialog.h"

#include "model/dbtypes.h"
#include "model/unitdescriptor.h"

#include <QDialogButtonBox>
#include <QGuiApplication>
#include <QHeaderView>
#include <QScreen>
#include <QScrollBar>
#include <QTableWidget>
#include <QVBoxLayout>

#include <algorithm>

NutrientsDialog::NutrientsDialog(int foodId, int servingId, float quantity, QWidget *parent)
    : QDialog(parent)
{
    FoodDiaryItem chosen;
    chosen.changeFood(foodId);
    const QList<FoodServing> servings = chosen.getServings();
    setWindowTitle(tr("Nutrition Facts: %1").arg(chosen.food_name));
    setProperty("helpPage", QStringLiteral("servings"));
    chosen.setServing(servingId);
    chosen.setSize(quantity);
    QList<const FoodDiaryItem *> columns = {&chosen};
    QStringList headers = {
        QStringLiteral("%1 x %2").arg(QLocale().toString(double(quantity)), chosen.serv_name)};
    // Per 100 of the food's own measure, when it has one.
    FoodDiaryItem hundred;
    const auto base = std::find_if(servings.cbegin(), servings.cend(),
                                   [](const FoodServing &s) { return s.id < 0 && s.quantity == 1.0f; });
    if (base != servings.cend()) {
        hundred.changeFood(foodId);
        hundred.setServing(base->id);
        hundred.setSize(100.0f);
        columns.append(&hundred);
        headers.append(tr("Per 100 %1").arg(base->name));
    }

    auto *table = new QTableWidget(kNutrientCount, int(columns.size()), this);
    table->setObjectName(QStringLiteral("nutrients"));
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->setHorizontalHeaderLabels(headers);
    const UnitRegistry &units = UnitRegistry::instance();
    for (int type = 0; type < kNutrientCount; ++type) {
        const UnitDescriptor &unit = *units.getUnitForNutrient(type);
        table->setVerticalHeaderItem(type, new QTableWidgetItem(unit.getName()));
        for (qsizetype c = 0; c < columns.size(); ++c) {
            auto *value = new QTableWidgetItem(unit.formatValueWithUnit(columns.at(c)->getNutrient(type)));
            value->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
            table->setItem(type, int(c), value);
        }
    }
    table->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    table->verticalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    // The whole table at once where the screen has room: every figure, no scrolling.
    const int frame = 2 * table->frameWidth();
    const int width =
        table->verticalHeader()->sizeHint().width() + table->horizontalHeader()->length() + frame;
    const int height =
        table->horizontalHeader()->sizeHint().height() + table->verticalHeader()->length() + frame;
    const QScreen *screen = parent ? parent->screen() : QGuiApplication::primaryScreen();
    const int room = screen ? screen->availableGeometry().height() * 3 / 4 : height;
    table->setMinimumSize(width + (height > room ? table->verticalScrollBar()->sizeHint().width() : 0),
                          std::min(height, room));
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(table);
    layout->addWidget(buttons);
}
