#include "ui/mainwindow.h"

#include "app/lmsettings.h"
#include "brand/brandengine.h"
#include "common/lmconstants.h"
#include "db/databackup.h"
#include "db/diarydb.h"
#include "db/userdb.h"
#include "model/dateconversion.h"
#include "model/dbtypes.h"
#include "model/unitdescriptor.h"
#include "net/mealplandownload.h"
#include "reports/csvexportdiary.h"
#include "ui/backgroundservices.h"
#include "ui/checkinview.h"
#include "ui/diaryview.h"
#include "ui/goalsdialog.h"
#include "ui/helpwindow.h"
#include "ui/newprofilewizard.h"
#include "ui/preferencesdialog.h"
#include "ui/printing.h"
#include "ui/profiledialog.h"
#include "ui/publishdialog.h"
#include "ui/recipedialog.h"
#include "ui/reportsview.h"
#include "ui/savedmealsdialog.h"
#include "ui/updatedialog.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QDate>
#include <QDir>
#include <QEventLoop>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QProgressDialog>
#include <QScreen>
#include <QStackedWidget>
#include <QStatusBar>
#include <QTextBrowser>
#include <QToolBar>
#include <QUndoStack>
#include <QVBoxLayout>

MainWindow::MainWindow(QWidget *parent)
    : QMainWindow(parent)
{
    const BrandEngine &brand = BrandEngine::instance();
    _background = new BackgroundServices(this);
    setWindowTitle(brand.getString(QStringLiteral("app_name")));
    setWindowIcon(brand.getPixmap(QStringLiteral("graphics.image.profile.logo")));

    _sections = new QListWidget(this);
    _sections->setObjectName(QStringLiteral("sections"));
    _sections->setViewMode(QListView::IconMode);
    _sections->setFlow(QListView::TopToBottom);
    _sections->setMovement(QListView::Static);
    _sections->setIconSize(QSize(48, 48));
    _sections->setFixedWidth(96);
    const QPair<const char *, QString> sections[] = {
        {"diary_icon", tr("Diary")}, {"checkin_icon", tr("Check-in")}, {"reports_icon", tr("Reports")}};
    for (const auto &[icon, name] : sections)
        new QListWidgetItem(QIcon(brand.getPixmap(QLatin1String(icon))), name, _sections);

    _diary = new DiaryView(this);
    _checkInPage = new QWidget(this);
    (new QVBoxLayout(_checkInPage))->setContentsMargins(0, 0, 0, 0);
    _reportsPage = new QWidget(this);
    (new QVBoxLayout(_reportsPage))->setContentsMargins(0, 0, 0, 0);
    _pages = new QStackedWidget(this);
    _pages->addWidget(_diary);
    _pages->addWidget(_checkInPage);
    _pages->addWidget(_reportsPage);
    // F1 opens the help page of the section with focus.
    const char *const helpPages[] = {"logging", "check-ins-and-goals", "reports"};
    for (int s = 0; s < int(std::size(helpPages)) && s < _pages->count(); ++s)
        _pages->widget(s)->setProperty("helpPage", QLatin1String(helpPages[s]));
    connect(_sections, &QListWidget::currentRowChanged, this, &MainWindow::showSection);
    connect(_diary, &DiaryView::dayChanged, this, &MainWindow::updateReport);

    auto *central = new QWidget(this);
    auto *layout = new QHBoxLayout(central);
    layout->addWidget(_sections);
    layout->addWidget(_pages, 1);
    setCentralWidget(central);
    createActions();
    _sections->setCurrentRow(DiarySection);
    statusBar()->showMessage(tr("Ready"));
    // Below this the day's columns and the matches no longer fit side by side.
    setMinimumSize(960, 600);
    // Room for both and the day's standing below them; a smaller screen is filled instead of
    // overrun (a saved size, restored below, is brought within the screen by Qt).
    const QSize roomy(1100, 740);
    const QSize available = screen()->availableGeometry().size();
    resize(roomy.boundedTo(available));
    if (available.width() < roomy.width() || available.height() < roomy.height())
        setWindowState(Qt::WindowMaximized);
    restoreGeometry(LmSettings::readValue(QStringLiteral("/window/geometry")).toByteArray());
}

void MainWindow::createActions()
{
    const BrandEngine &brand = BrandEngine::instance();
    const auto icon = [&brand](const char *id) { return QIcon(brand.getPixmap(QLatin1String(id))); };
    QToolBar *tools = addToolBar(tr("Tools"));
    tools->setObjectName(QStringLiteral("toolbar"));

    QMenu *file = menuBar()->addMenu(tr("&File"));
    _newProfile = file->addAction(tr("&New Profile..."), this, [this] { openProfile(-1); });
    _switchProfile = file->addMenu(tr("&Switch Profile"));
    connect(_switchProfile, &QMenu::aboutToShow, this, [this] {
        _switchProfile->clear();
        for (const UserProfile &user : UserDB::getUsers()) {
            QAction *action =
                _switchProfile->addAction(user.name, this, [this, id = user.user_id] { openProfile(id); });
            action->setCheckable(true);
            action->setChecked(user.user_id == _userId);
        }
    });
    file->addAction(tr("&Edit Profile..."), this, [this] {
        ProfileDialog dialog(_userId, this);
        if (dialog.exec() == QDialog::Accepted)
            openProfile(_userId);
    });
    file->addAction(tr("&Delete Profile..."), this, [this] {
        const QString name = _profileName;
        if (QMessageBox::question(
                this, tr("Delete Profile"),
                tr("Delete the profile %1 with all its diary, check-ins and targets?\n\nThis "
                   "cannot be undone.")
                    .arg(name),
                QMessageBox::Yes | QMessageBox::No, QMessageBox::No) == QMessageBox::Yes)
            deleteProfile();
    });
    file->addSeparator();
    file->addAction(tr("&Export Diary as CSV..."), this, [this] {
        const QString fileName = QFileDialog::getSaveFileName(
            this, tr("Export Diary"), QStringLiteral("diary.csv"), tr("CSV files (*.csv)"));
        if (!fileName.isEmpty())
            exportDiaryTo(fileName);
    });
    file->addAction(icon("graphics.icon.print"), tr("Print Pre&view..."), this,
                    [this] { printing()->preview(); })
        ->setObjectName(QStringLiteral("printPreview"));
    file->addAction(tr("&Print..."), QKeySequence::Print, this, [this] { printing()->print(); });
    file->addAction(tr("Export as P&DF..."), this, [this] {
        const QString fileName = QFileDialog::getSaveFileName(
            this, tr("Export as PDF"), QStringLiteral("diary.pdf"), tr("PDF files (*.pdf)"));
        if (fileName.isEmpty())
            return;
        if (const QString error = printing()->exportPdf(fileName); !error.isEmpty())
            QMessageBox::warning(this, tr("Export as PDF"), error);
        else
            statusBar()->showMessage(tr("The pages are in %1.").arg(fileName), 5000);
    });
    file->addAction(tr("&Back Up Data..."), this, [this] {
        const QString name =
            QStringLiteral("%1 %2.tar").arg(windowTitle(), QDate::currentDate().toString(Qt::ISODate));
        const QString fileName = QFileDialog::getSaveFileName(
            this, tr("Back Up Data"), LmSettings::backupPath() + name, tr("TAR files (*.tar)"));
        if (!fileName.isEmpty())
            backUpDataTo(fileName);
    });
    file->addAction(tr("&Restore Data..."), this, [this] {
        const QString fileName = QFileDialog::getOpenFileName(
            this, tr("Restore Data"), LmSettings::backupPath(), tr("TAR files (*.tar)"));
        if (fileName.isEmpty() ||
            QMessageBox::question(
                this, tr("Restore Data"),
                tr("Everything in the diary is replaced by the backup in %1.\n\nThe diary as "
                   "it is now is kept beside it as userdata.db.before-restore. Restore?")
                    .arg(QDir::toNativeSeparators(fileName))) != QMessageBox::Yes)
            return;
        restoreDataFrom(fileName);
    });
    file->addSeparator();
    file->addAction(tr("&Quit"), QKeySequence::Quit, qApp, &QApplication::closeAllWindows);

    QMenu *edit = menuBar()->addMenu(tr("&Edit"));
    // Named after the change they take back or make again ("Undo Add Bananas, raw").
    QAction *undo = _diary->undoStack()->createUndoAction(this, tr("&Undo"));
    undo->setObjectName(QStringLiteral("undo"));
    undo->setShortcut(QKeySequence::Undo);
    edit->addAction(undo);
    QAction *redo = _diary->undoStack()->createRedoAction(this, tr("&Redo"));
    redo->setObjectName(QStringLiteral("redo"));
    redo->setShortcut(QKeySequence::Redo);
    edit->addAction(redo);
    QAction *find = edit->addAction(
        icon("graphics.icon.search_small"), tr("&Find Food"), QKeySequence::Find, this, [this] {
            showSection(DiarySection);
            if (auto *search = _diary->findChild<QWidget *>(QStringLiteral("search")))
                search->setFocus();
        });
    QAction *remove = edit->addAction(icon("graphics.icon.diary.delete"), tr("&Delete Entry"), this,
                                      [this] { _diary->deleteSelectedEntry(); });
    edit->addAction(icon("graphics.icon.copy"), tr("&Copy Day to Tomorrow"), this, [this] {
        const int copied = _diary->copyDay(_diary->date().addDays(1));
        statusBar()->showMessage(tr("%n entries copied to the next day.", nullptr, copied), 5000);
    });
    edit->addSeparator();
    QAction *goals =
        edit->addAction(tr("&Goals and Targets..."), QKeySequence(Qt::CTRL | Qt::Key_G), this, [this] {
            GoalsDialog dialog(_userId, _diary->date(), this);
            if (dialog.exec() == QDialog::Accepted)
                _diary->reload();
        });
    goals->setObjectName(QStringLiteral("goals"));
    QAction *recipes = edit->addAction(tr("&Recipes..."), QKeySequence(Qt::CTRL | Qt::Key_R), this, [this] {
        RecipesDialog dialog(
            _userId, _diary->browser()->foods(), _diary->meal(),
            [this](const Recipe &recipe, int meal, double portions, double grams) {
                return _diary->logRecipe(recipe, meal, portions, grams);
            },
            this);
        dialog.exec();
    });
    recipes->setObjectName(QStringLiteral("recipes"));
    QAction *meals = edit->addAction(tr("Saved &Meals..."), QKeySequence(Qt::CTRL | Qt::Key_M), this, [this] {
        SavedMealsDialog dialog(
            _userId, _diary->browser()->foods(), _diary->meal(),
            [this](const QList<FoodDiaryItem> &foods, int meal) { return _diary->logFoods(foods, meal); },
            this);
        dialog.exec();
        _diary->browser()->savedMealsChanged(); // renamed or deleted in the dialog
    });
    meals->setObjectName(QStringLiteral("savedMeals"));
    edit->addSeparator();
    edit->addAction(tr("&Preferences..."), QKeySequence(Qt::CTRL | Qt::Key_Comma), this,
                    &MainWindow::editPreferences);
    tools->addAction(find);
    tools->addAction(remove);

    QMenu *view = menuBar()->addMenu(tr("&View"));
    QAction *previous = view->addAction(icon("graphics.icon.backarrow"), tr("&Previous Day"),
                                        QKeySequence(Qt::ALT | Qt::Key_Left), this,
                                        [this] { _diary->setDate(_diary->date().addDays(-1)); });
    QAction *today =
        view->addAction(icon("graphics.icon.checkin.today"), tr("&Today"), QKeySequence(Qt::CTRL | Qt::Key_T),
                        this, [this] { _diary->setDate(QDate::currentDate()); });
    QAction *next = view->addAction(icon("graphics.icon.frontarrow"), tr("&Next Day"),
                                    QKeySequence(Qt::ALT | Qt::Key_Right), this,
                                    [this] { _diary->setDate(_diary->date().addDays(1)); });
    view->addSeparator();
    QMenu *columns = view->addMenu(icon("graphics.icon.nutrient"), tr("Nutrient &Columns"));
    connect(columns, &QMenu::aboutToShow, this, [this, columns] {
        columns->clear();
        const QList<int> shown = _diary->columns();
        for (int type = 0; type < kNutrientCount; ++type) {
            QAction *action =
                columns->addAction(UnitRegistry::instance().getUnitForNutrient(type)->getName());
            action->setCheckable(true);
            action->setChecked(shown.contains(type));
            connect(action, &QAction::toggled, this, [this, type](bool on) {
                QList<int> chosen = _diary->columns();
                chosen.removeAll(type);
                if (on)
                    chosen.append(type);
                std::sort(chosen.begin(), chosen.end());
                _diary->setColumns(chosen);
            });
        }
    });
    _panelAction = view->addAction(tr("Show Nutrients and &Water"));
    _panelAction->setCheckable(true);
    _panelAction->setChecked(true);
    connect(_panelAction, &QAction::toggled, this, [this](bool on) { _diary->setNutrientPanelHidden(!on); });
    view->addSeparator();
    const QPair<const char *, QString> sections[] = {
        {"diary_icon", tr("&Diary")}, {"checkin_icon", tr("&Check-in")}, {"reports_icon", tr("&Reports")}};
    for (int s = 0; s < 3; ++s) {
        view->addAction(icon(sections[s].first), sections[s].second, QKeySequence(Qt::CTRL | (Qt::Key_1 + s)),
                        this, [this, s] { showSection(s); });
    }
    tools->addSeparator();
    tools->addAction(previous);
    tools->addAction(today);
    tools->addAction(next);

    QMenu *web = menuBar()->addMenu(tr("&Tools"));
    const auto flag = [&brand](const char *id) {
        return brand.idExists(QLatin1String(id)) && brand.getBool(QLatin1String(id));
    };
    if (flag("publish_enabled")) {
        QAction *publish = web->addAction(icon("graphics.icon.publish"), tr("&Publish Diary"), this,
                                          [this] { publishDiary(); });
        tools->addSeparator();
        tools->addAction(publish);
    }
    if (flag("mealplans_enabled")) {
        web->addAction(icon("graphics.icon.mealplan"), tr("Download &Meal Plan"), this, [this] {
            MealPlanDownloader *downloader = MealPlanDownloader::instance();
            if (!downloader->download(_userId)) {
                QMessageBox::information(this, tr("Meal Plan"),
                                         downloader->errorText().isEmpty()
                                             ? tr("The coming week is planned already.")
                                             : downloader->errorText());
                return;
            }
            QProgressDialog progress(tr("Downloading your meal plan..."), QString(), 0, 0, this);
            progress.setWindowModality(Qt::WindowModal);
            QEventLoop loop;
            bool failed = false;
            QString text;
            connect(downloader, &MealPlanDownloader::finished, &loop,
                    [&](bool error, const QString &message) {
                        failed = error;
                        text = message;
                        loop.quit();
                    });
            progress.show();
            loop.exec();
            progress.hide();
            if (failed)
                QMessageBox::warning(this, tr("Meal Plan"), text);
            else
                QMessageBox::information(this, tr("Meal Plan"),
                                         tr("Your meal plan for the coming week is stored."));
        });
    }
    if (flag("update_enabled") && brand.idExists(QStringLiteral("update_rss_url"))) {
        web->addAction(icon("graphics.icon.updatedb"), tr("Check for Database &Updates"), this,
                       [this] { Ui::runDatabaseUpdate(this, true); });
    }

    QMenu *help = menuBar()->addMenu(tr("&Help"));
    QAction *contents =
        help->addAction(tr("&Contents"), this, [this] { HelpWindow::showHelp(this, QString()); });
    contents->setObjectName(QStringLiteral("helpContents"));
    // F1 is shown here but taken application-wide, dialogs included, for the page of the focus.
    contents->setShortcut(QKeySequence(Qt::Key_F1));
    contents->setShortcutContext(Qt::WidgetShortcut);
    HelpWindow::installHelpKey(this);
    help->addSeparator();
    help->addAction(icon("graphics.icon.help"), tr("&About %1").arg(windowTitle()), this,
                    [this] { QMessageBox::about(this, tr("About %1").arg(windowTitle()), aboutText()); });
}

bool MainWindow::editPreferences()
{
    if (_userId < 0)
        return false;
    PreferencesDialog dialog(_userId, this);
    if (dialog.exec() != QDialog::Accepted)
        return false;
    applyPreferences();
    return true;
}

void MainWindow::applyPreferences()
{
    // Units and meal names show everywhere at once.
    _diary->preferencesChanged();
    if (_checkIn)
        _checkIn->setUser(_userId);
    updateReport();
}

CheckInView *MainWindow::checkIn()
{
    if (_checkIn)
        return _checkIn;
    _checkIn = new CheckInView(_checkInPage);
    _checkInPage->layout()->addWidget(_checkIn);
    connect(_diary, &DiaryView::dayChanged, _checkIn, &CheckInView::setDate);
    connect(_checkIn, &CheckInView::checkInChanged, this, &MainWindow::updateReport);
    if (_userId >= 0) {
        _checkIn->setUser(_userId);
        _checkIn->setDate(_diary->date());
    }
    return _checkIn;
}

ReportsView *MainWindow::reports()
{
    if (!_reports) {
        _reports = new ReportsView(_reportsPage);
        _reports->setObjectName(QStringLiteral("reports"));
        _reportsPage->layout()->addWidget(_reports);
    }
    return _reports;
}

void MainWindow::showSection(int section)
{
    if (section < 0 || section > ReportsSection)
        return;
    if (section == CheckInSection)
        checkIn();
    else if (section == ReportsSection)
        reports();
    _sections->setCurrentRow(section);
    _pages->setCurrentIndex(section);
    if (section == ReportsSection)
        updateReport();
}

void MainWindow::updateReport()
{
    if (_userId >= 0 && _pages->currentIndex() == ReportsSection && _reports) {
        _reports->setUser(_userId);
        _reports->setDay(_diary->date());
        _reports->refresh();
    }
}

QString MainWindow::aboutText() const
{
    QString credits = QString::fromLatin1(Lm::kReferenceDataCredits).toHtmlEscaped();
    credits.replace(QLatin1Char('\n'), QLatin1String("<br><br>"));
    return QStringLiteral("<p><b>%1 %2</b></p><p>%3</p>")
        .arg(windowTitle().toHtmlEscaped(), QLatin1String(Lm::kVersion), credits);
}

bool MainWindow::openProfile(int user_id)
{
    if (user_id < 0) {
        NewProfileWizard wizard(this);
        qDebug("no profile yet: running the new-profile wizard");
        if (wizard.exec() != QDialog::Accepted || wizard.createdUserId() < 0)
            return false;
        user_id = wizard.createdUserId();
    }
    _userId = user_id;
    _background->setUser(user_id);
    _profileName = UserDB::getUser(user_id).value_or(UserProfile()).name;
    statusBar()->showMessage(tr("Profile: %1").arg(_profileName));
    // More than one profile only where the edition is for a family.
    const BrandEngine &brand = BrandEngine::instance();
    const bool family =
        brand.idExists(QStringLiteral("feature.family")) && brand.getBool(QStringLiteral("feature.family"));
    _newProfile->setVisible(family);
    _switchProfile->menuAction()->setVisible(family);
    const QSignalBlocker blocker(_panelAction);
    _panelAction->setChecked(!UserDB::getSettings(user_id).hideNutrientAndFluid);
    _diary->setUser(user_id);
    if (_checkIn) {
        _checkIn->setUser(user_id);
        _checkIn->setDate(_diary->date());
    }
    updateReport();
    return true;
}

QString MainWindow::backUpDataTo(const QString &fileName)
{
    const QString error = DataBackup::backUp(fileName);
    if (!error.isEmpty())
        QMessageBox::warning(this, tr("Back Up Data"), error);
    else
        statusBar()->showMessage(tr("The data is backed up in %1.").arg(QDir::toNativeSeparators(fileName)),
                                 5000);
    return error;
}

QString MainWindow::restoreDataFrom(const QString &fileName)
{
    const QString error = DataBackup::restore(fileName);
    if (!error.isEmpty()) {
        QMessageBox::warning(this, tr("Restore Data"), error);
        return error;
    }
    // Profiles and their ids come from the backup now; one without any starts with the wizard.
    const QList<int> users = UserDB::getUserIds();
    if (!openProfile(users.contains(_userId) ? _userId : users.value(0, -1))) {
        _userId = -1;
        close();
        return QString();
    }
    statusBar()->showMessage(tr("The data is restored from %1.").arg(QDir::toNativeSeparators(fileName)),
                             5000);
    return QString();
}

DiaryPrinting *MainWindow::printing()
{
    if (!_printing)
        _printing = new DiaryPrinting(this);
    _printing->setDay(_userId, _diary->date());
    // The shown report, when there is one; else the diary.
    const bool report = _pages->currentIndex() == ReportsSection && _reports && _reports->document();
    _printing->setReport(report ? _reports->document() : std::nullopt);
    return _printing;
}

QString MainWindow::exportDiaryTo(const QString &fileName)
{
    // The whole diary, from its first day with an item to its last.
    const QSet<QString> days = DiaryDB().getAllDatesWithEntries(_userId, false);
    QString error = QStringLiteral("There is nothing in the diary to export!");
    if (!days.isEmpty()) {
        const auto [first, last] = std::minmax_element(days.cbegin(), days.cend());
        error = exportDiary(_userId, fileName, QString(), DateConversion::toQDate(*first),
                            DateConversion::toQDate(*last), false);
    }
    if (!error.isEmpty())
        QMessageBox::warning(this, tr("Export Diary"), error);
    else
        statusBar()->showMessage(tr("The diary is in %1.").arg(fileName), 5000);
    return error;
}

QString MainWindow::publishDiary()
{
    if (_userId < 0)
        return QString();
    PublishProgressDialog dialog(this);
    const QString result = dialog.publish(_userId);
    updateReport();
    return result;
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    // Publish on the way out, when the profile wants it and there is something new.
    if (_userId >= 0) {
        const UserSettings settings = UserDB::getSettings(_userId);
        if (settings.auto_publish && !settings.web_username.isEmpty() &&
            !DiaryDB().getUnpublishedDates(_userId).isEmpty() &&
            (!settings.ask_before_publish ||
             QMessageBox::question(this, tr("Publish Diary"),
                                   QStringLiteral("Do you want to publish new diary entries to the online "
                                                  "diary now?")) == QMessageBox::Yes))
            publishDiary();
    }
    // The window opens again as it was left.
    // Written only when it moved: each write syncs the file, and most closes change nothing.
    if (const QByteArray geometry = saveGeometry();
        LmSettings::readValue(QStringLiteral("/window/geometry")).toByteArray() != geometry)
        LmSettings::writeValue(QStringLiteral("/window/geometry"), geometry);
    _diary->saveLayout();
    QMainWindow::closeEvent(event);
}

bool MainWindow::deleteProfile()
{
    if (_userId < 0)
        return false;
    UserDB::deleteUser(_userId);
    _userId = -1;
    const QList<int> users = UserDB::getUserIds();
    if (!openProfile(users.isEmpty() ? -1 : users.constFirst()))
        close(); // no profile left and none made: nothing to show
    return true;
}

void MainWindow::processMessage(const QString &message)
{
    qDebug("%s received", qUtf8Printable(message));
    // Another copy was started: bring this one forward instead.
    setWindowState((windowState() & ~Qt::WindowMinimized) | Qt::WindowActive);
    show();
    raise();
    activateWindow();
}
