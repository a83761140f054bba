#pragma once

// The program's own help: the pages in helphtml/ of the resource folder, with their contents, a
// full-text search, and Back, Forward and Home. One window for the run, not modal; F1 opens it
// at the page of whatever has focus, inside modal dialogs too.
//
// Widgets name their page with the dynamic property "helpPage" (a page's file name, ".html"
// optional); the nearest one up from the focus counts, else the contents.

#include <QWidget>

class QLineEdit;
class QListWidget;
class QListWidgetItem;
class QTextBrowser;

class HelpWindow : public QWidget
{
    Q_OBJECT

public:
    // The window of the run, made when first wanted; a child of parent when it is made.
    static HelpWindow *instance(QWidget *parent = nullptr);
    // Shows the window at a page (the contents when empty), in front.
    static HelpWindow *showHelp(QWidget *parent, const QString &page);
    // Shows the window at the page for the focus widget (or the active modal dialog).
    static HelpWindow *showContextHelp();
    // The page of the nearest "helpPage" up from widget; "index.html" when there is none.
    static QString pageFor(const QWidget *widget);
    // Takes F1 for the whole application while owner lives.
    static void installHelpKey(QObject *owner);

    // Opens a page ("goals", "goals.html"); the contents when it does not exist.
    void showPage(const QString &page);
    // The file name of the page shown.
    QString currentPage() const;
    // The pages holding every word of query, most hits first: their file names.
    QStringList search(const QString &query);

private:
    explicit HelpWindow(QWidget *parent);
    void loadContents();
    void showResults(const QString &query);
    void openItem(const QListWidgetItem *item);
    // A modal dialog blocks every window but its own: the help window stays with the dialog
    // while it is up, then goes back to the dialog's own window.
    void followModal(QWidget *modal);

    struct Page
    {
        QString file;
        QString title;
        QString text; // lower case, for the search
    };
    QList<Page> _pages;
    bool _indexed = false;
    QLineEdit *_search;
    QListWidget *_list;
    QTextBrowser *_browser;
};
