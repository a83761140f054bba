// The help: the rendered pages hang together, F1 opens the page of what has focus (in a modal
// dialog too), and the search finds pages by their words. Real windows, offscreen.

#include "dbfixture.h"
#include "ui/helpwindow.h"
#include "ui/mainwindow.h"

#include <QAction>
#include <QApplication>
#include <QDialog>
#include <QDir>
#include <QLineEdit>
#include <QListWidget>
#include <QRegularExpression>
#include <QSpinBox>
#include <QTextBrowser>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace {

const QString kBuiltHelp = QStringLiteral(TARNWELL_BIN_DIR "/helphtml/");

// "FILE<TAB>TITLE" lines of the built contents.
QList<QStringList> contents()
{
    QList<QStringList> entries;
    const QString text = QString::fromUtf8(DbTest::readFile(kBuiltHelp + u"contents.txt"_s));
    for (const QString &line : text.split(u'\n', Qt::SkipEmptyParts))
        entries.append(line.split(u'\t'));
    return entries;
}

} // namespace

class TestHelp : public QObject
{
    Q_OBJECT

private:
    DbFixture _db;
    // The diary with its reference data, the built help in its resource folder, a window on Ann.
    std::unique_ptr<MainWindow> openWindow()
    {
        if (!_db.startWithReferenceData() || !QDir().mkpath(LmSettings::helpPath()))
            return nullptr;
        for (const QString &file : QDir(kBuiltHelp).entryList(QDir::Files)) {
            if (!QFile::copy(kBuiltHelp + file, LmSettings::helpPath() + file))
                return nullptr;
        }
        auto window = std::make_unique<MainWindow>();
        if (!window->openProfile(DbFixture::makeAnn()))
            return nullptr;
        window->show();
        QApplication::setActiveWindow(window.get());
        return QTest::qWaitForWindowActive(window.get()) ? std::move(window) : nullptr;
    }

private slots:
    void cleanup() { _db.stop(); }

    void pagesAndLinks_data();
    void pagesAndLinks();
    void f1OpensPageOfFocus_data();
    void f1OpensPageOfFocus();
    void f1InDialogOpensItsPage();
    void searchFindsPage_data();
    void searchFindsPage();
};

void TestHelp::pagesAndLinks_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("title");
    const QList<QStringList> entries = contents();
    QVERIFY2(entries.size() > 1, "build the target help_html first");
    QCOMPARE(entries.constFirst().constFirst(), u"index.html"_s);
    for (const QStringList &entry : entries) {
        QCOMPARE(entry.size(), 2);
        QTest::newRow(qPrintable(entry.at(0))) << entry.at(0) << entry.at(1);
    }
}

void TestHelp::pagesAndLinks()
{
    QFETCH(QString, file);
    QFETCH(QString, title);
    const QString html = QString::fromUtf8(DbTest::readFile(kBuiltHelp + file));
    QVERIFY2(!html.isEmpty(), qPrintable(file + u" is missing"_s));
    QVERIFY(html.contains(u"<title>"_s + title.toHtmlEscaped() + u"</title>"_s));
    // Every page but the contents leads back to it.
    QCOMPARE(html.contains(u"href=\"index.html\""_s), file != u"index.html"_s);
    // Links between pages point at rendered pages; none is left pointing at a source.
    static const QRegularExpression link(uR"re(href="([^"]*)")re"_s);
    for (auto it = link.globalMatch(html); it.hasNext();) {
        const QString target = it.next().captured(1);
        if (target.contains(u"://"_s))
            continue;
        const QString page = target.section(u'#', 0, 0);
        QVERIFY2(page.endsWith(u".html"_s) && QFile::exists(kBuiltHelp + page),
                 qPrintable(file + u" links to "_s + target));
    }
}

void TestHelp::f1OpensPageOfFocus_data()
{
    QTest::addColumn<int>("section");
    QTest::addColumn<QString>("widget");
    QTest::addColumn<QString>("page");
    QTest::newRow("diary search") << int(MainWindow::DiarySection) << u"search"_s << u"logging.html"_s;
    QTest::newRow("day's entries") << int(MainWindow::DiarySection) << u"entries"_s << u"logging.html"_s;
    QTest::newRow("check-in weight") << int(MainWindow::CheckInSection) << u"weight"_s
                                     << u"check-ins-and-goals.html"_s;
    QTest::newRow("report") << int(MainWindow::ReportsSection) << u"report"_s << u"reports.html"_s;
}

void TestHelp::f1OpensPageOfFocus()
{
    QFETCH(int, section);
    QFETCH(QString, widget);
    QFETCH(QString, page);
    const std::unique_ptr<MainWindow> opened = openWindow();
    QVERIFY(opened);
    MainWindow &window = *opened;
    window.showSection(section);
    auto *focus = window.findChild<QWidget *>(widget);
    QVERIFY(focus);
    focus->setFocus();
    QCOMPARE(QApplication::focusWidget(), focus);
    QTest::keyClick(focus, Qt::Key_F1);
    HelpWindow *help = HelpWindow::instance();
    QVERIFY(help->isVisible());
    QCOMPARE(help->currentPage(), page);
    QVERIFY(!help->findChild<QTextBrowser *>(u"helpBrowser"_s)->toPlainText().isEmpty());
    // The menu's Contents always opens the contents.
    window.findChild<QAction *>(u"helpContents"_s)->trigger();
    QCOMPARE(help->currentPage(), u"index.html"_s);
}

void TestHelp::f1InDialogOpensItsPage()
{
    const std::unique_ptr<MainWindow> opened = openWindow();
    QVERIFY(opened);
    MainWindow &window = *opened;
    QPointer<HelpWindow> help;
    bool shown = false;
    QTimer::singleShot(0, [&] {
        auto *dialog = qobject_cast<QDialog *>(QApplication::activeModalWidget());
        QVERIFY(dialog);
        shown = true;
        QApplication::setActiveWindow(dialog);
        auto *calories = dialog->findChild<QSpinBox *>(u"calories"_s);
        calories->setFocus();
        QTest::keyClick(calories, Qt::Key_F1);
        help = HelpWindow::instance();
        QCOMPARE(help->currentPage(), u"check-ins-and-goals.html"_s);
        // With the dialog, so that its modality does not block the help.
        QCOMPARE(help->parentWidget(), dialog);
        QVERIFY(help->isVisible());
        dialog->reject();
    });
    window.findChild<QAction *>(u"goals"_s)->trigger();
    QVERIFY(shown);
    // Back with the window once the dialog is gone, still open.
    QVERIFY(help);
    QCOMPARE(help->parentWidget(), &window);
    QVERIFY(help->isVisible());
}

void TestHelp::searchFindsPage_data()
{
    QTest::addColumn<QString>("words");
    QTest::addColumn<QString>("page");
    QTest::newRow("one word") << u"wpad"_s << u"proxies.html"_s;
    QTest::newRow("two words, any case") << u"Cooked WEIGHT"_s << u"recipes-and-meals.html"_s;
    QTest::newRow("a file name") << u"before-restore"_s << u"backups.html"_s;
    QTest::newRow("nothing") << u"xyzzyq"_s << QString();
}

void TestHelp::searchFindsPage()
{
    QFETCH(QString, words);
    QFETCH(QString, page);
    const std::unique_ptr<MainWindow> opened = openWindow();
    QVERIFY(opened);
    MainWindow &window = *opened;
    HelpWindow *help = HelpWindow::showHelp(&window, QString());
    auto *search = help->findChild<QLineEdit *>(u"helpSearch"_s);
    auto *list = help->findChild<QListWidget *>(u"helpList"_s);
    search->setText(words);
    QStringList found;
    for (int row = 0; row < list->count(); ++row)
        found.append(list->item(row)->data(Qt::UserRole).toString());
    if (page.isEmpty()) {
        QCOMPARE(found, QStringList{QString()}); // "Nothing found", which opens nothing
        QTest::keyClick(search, Qt::Key_Return);
        QCOMPARE(help->currentPage(), u"index.html"_s);
        return;
    }
    QVERIFY2(found.contains(page), qPrintable(found.join(u' ')));
    // Enter opens the first result, with the word found on it.
    QTest::keyClick(search, Qt::Key_Return);
    QCOMPARE(help->currentPage(), found.constFirst());
    const QString selected = help->findChild<QTextBrowser *>(u"helpBrowser"_s)->textCursor().selectedText();
    QCOMPARE(selected.toLower(), words.section(u' ', 0, 0).toLower());
}

QTEST_MAIN(TestHelp)
#include "tst_help.moc"
