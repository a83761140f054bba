#include "ui/helpwindow.h"

#include "app/lmsettings.h"
#include "brand/brandengine.h"

#include <QAction>
#include <QApplication>
#include <QDialog>
#include <QFile>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLineEdit>
#include <QListWidget>
#include <QPointer>
#include <QSplitter>
#include <QTextBrowser>
#include <QTextDocument>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>

namespace {

const QString kIndex = QStringLiteral("index.html");
const char kHelpPage[] = "helpPage";

QPointer<HelpWindow> s_instance;

// F1 reaches the application before any widget, modal dialogs included.
class HelpKey : public QObject
{
public:
    using QObject::QObject;
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::KeyPress) {
            const auto *press = static_cast<QKeyEvent *>(event);
            if (press->key() == Qt::Key_F1 && (press->modifiers() & ~Qt::KeypadModifier) == Qt::NoModifier) {
                HelpWindow::showContextHelp();
                return true;
            }
        }
        return QObject::eventFilter(watched, event);
    }
};

QToolButton *toolButton(QAction *action, QWidget *parent)
{
    auto *button = new QToolButton(parent);
    button->setDefaultAction(action);
    button->setToolButtonStyle(Qt::ToolButtonTextOnly);
    return button;
}

} // namespace

HelpWindow::HelpWindow(QWidget *parent)
    : QWidget(parent, Qt::Window)
{
    setObjectName(QStringLiteral("help"));
    const BrandEngine &brand = BrandEngine::instance();
    const QString name = brand.idExists(QStringLiteral("app_name"))
                             ? brand.getString(QStringLiteral("app_name"))
                             : QStringLiteral("Tarnwell");
    setWindowTitle(tr("%1 Help").arg(name));

    _search = new QLineEdit(this);
    _search->setObjectName(QStringLiteral("helpSearch"));
    _search->setPlaceholderText(tr("Search the help"));
    _search->setClearButtonEnabled(true);
    _list = new QListWidget(this);
    _list->setObjectName(QStringLiteral("helpList"));
    _browser = new QTextBrowser(this);
    _browser->setObjectName(QStringLiteral("helpBrowser"));
    _browser->setOpenExternalLinks(true);
    _browser->setSearchPaths({LmSettings::helpPath()});

    auto *back = new QAction(tr("Back"), this);
    back->setShortcut(QKeySequence::Back);
    back->setEnabled(false);
    auto *forward = new QAction(tr("Forward"), this);
    forward->setShortcut(QKeySequence::Forward);
    forward->setEnabled(false);
    auto *home = new QAction(tr("Home"), this);
    home->setShortcut(QKeySequence(Qt::ALT | Qt::Key_Home));
    auto *find = new QAction(this);
    find->setShortcut(QKeySequence::Find);
    for (QAction *action : {back, forward, home, find}) {
        action->setShortcutContext(Qt::WindowShortcut);
        addAction(action);
    }
    for (QAction *action : {back, forward, home})
        action->setToolTip(action->text() + QStringLiteral(" (") +
                           action->shortcut().toString(QKeySequence::NativeText) + QLatin1Char(')'));
    connect(back, &QAction::triggered, _browser, &QTextBrowser::backward);
    connect(forward, &QAction::triggered, _browser, &QTextBrowser::forward);
    connect(home, &QAction::triggered, this, [this] { showPage(kIndex); });
    connect(find, &QAction::triggered, this, [this] {
        _search->setFocus();
        _search->selectAll();
    });
    connect(_browser, &QTextBrowser::backwardAvailable, back, &QAction::setEnabled);
    connect(_browser, &QTextBrowser::forwardAvailable, forward, &QAction::setEnabled);

    connect(_search, &QLineEdit::textChanged, this, &HelpWindow::showResults);
    // Enter opens the result chosen, the first one until another is.
    connect(_search, &QLineEdit::returnPressed, this,
            [this] { openItem(_list->currentItem() ? _list->currentItem() : _list->item(0)); });
    connect(_list, &QListWidget::itemActivated, this, &HelpWindow::openItem);
    connect(_list, &QListWidget::itemClicked, this, &HelpWindow::openItem);
    // The contents follow the page shown, whichever way it was reached.
    connect(_browser, &QTextBrowser::sourceChanged, this, [this](const QUrl &url) {
        if (!_search->text().trimmed().isEmpty())
            return;
        for (int row = 0; row < _list->count(); ++row) {
            if (_list->item(row)->data(Qt::UserRole).toString() == url.fileName())
                _list->setCurrentRow(row);
        }
    });

    auto *buttons = new QHBoxLayout;
    buttons->setContentsMargins(0, 0, 0, 0);
    for (QAction *action : {back, forward, home})
        buttons->addWidget(toolButton(action, this));
    buttons->addStretch();
    auto *left = new QWidget(this);
    auto *leftLayout = new QVBoxLayout(left);
    leftLayout->setContentsMargins(0, 0, 0, 0);
    leftLayout->addWidget(_search);
    leftLayout->addWidget(_list, 1);
    auto *right = new QWidget(this);
    auto *rightLayout = new QVBoxLayout(right);
    rightLayout->setContentsMargins(0, 0, 0, 0);
    rightLayout->addLayout(buttons);
    rightLayout->addWidget(_browser, 1);
    auto *splitter = new QSplitter(this);
    splitter->addWidget(left);
    splitter->addWidget(right);
    splitter->setStretchFactor(1, 1);
    splitter->setSizes({240, 660});
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(splitter);
    resize(960, 680);

    loadContents();
    showResults(QString());
}

HelpWindow *HelpWindow::instance(QWidget *parent)
{
    if (!s_instance)
        s_instance = new HelpWindow(parent);
    return s_instance;
}

HelpWindow *HelpWindow::showHelp(QWidget *parent, const QString &page)
{
    HelpWindow *help = instance(parent);
    help->showPage(page);
    help->show();
    help->raise();
    help->activateWindow();
    return help;
}

HelpWindow *HelpWindow::showContextHelp()
{
    QWidget *modal = QApplication::activeModalWidget();
    QWidget *from = QApplication::focusWidget();
    if (modal && (!from || from->window() != modal))
        from = modal;
    if (!from)
        from = QApplication::activeWindow();
    if (from && s_instance && from->window() == s_instance) {
        s_instance->raise(); // F1 in the help itself
        return s_instance;
    }
    // The window that lasts: the main window, not a dialog that closes soon.
    QWidget *owner = from ? from->window() : nullptr;
    while (owner && owner->isModal())
        owner = owner->parentWidget() ? owner->parentWidget()->window() : nullptr;
    HelpWindow *help = instance(owner);
    help->followModal(modal);
    return showHelp(owner, pageFor(from));
}

QString HelpWindow::pageFor(const QWidget *widget)
{
    for (; widget; widget = widget->parentWidget()) {
        const QString page = widget->property(kHelpPage).toString();
        if (!page.isEmpty())
            return page.endsWith(QLatin1String(".html")) ? page : page + QStringLiteral(".html");
    }
    return kIndex;
}

void HelpWindow::installHelpKey(QObject *owner)
{
    qApp->installEventFilter(new HelpKey(owner));
}

void HelpWindow::followModal(QWidget *modal)
{
    const auto moveTo = [this](QWidget *parent) {
        const QRect where = geometry();
        const bool shown = isVisible();
        setParent(parent, Qt::Window);
        setGeometry(where);
        if (shown)
            show();
    };
    auto *dialog = qobject_cast<QDialog *>(modal);
    if (!dialog || parentWidget() == dialog)
        return;
    QPointer<QWidget> before = parentWidget();
    moveTo(dialog);
    connect(
        dialog, &QDialog::finished, this, [moveTo, before] { moveTo(before); }, Qt::SingleShotConnection);
}

void HelpWindow::showPage(const QString &page)
{
    QString file = page.section(QLatin1Char('#'), 0, 0);
    const QString anchor = page.section(QLatin1Char('#'), 1);
    if (!file.isEmpty() && !file.endsWith(QLatin1String(".html")))
        file += QStringLiteral(".html");
    if (file.isEmpty() || !QFile::exists(LmSettings::helpPath() + file))
        file = kIndex;
    QUrl url = QUrl::fromLocalFile(LmSettings::helpPath() + file);
    if (!anchor.isEmpty() && file != kIndex)
        url.setFragment(anchor);
    _browser->setSource(url);
}

QString HelpWindow::currentPage() const
{
    return _browser->source().fileName();
}

void HelpWindow::loadContents()
{
    // "FILE<TAB>TITLE" a line, in the order of the contents page.
    QFile contents(LmSettings::helpPath() + QStringLiteral("contents.txt"));
    if (!contents.open(QIODevice::ReadOnly | QIODevice::Text))
        return;
    for (const QString &line : QString::fromUtf8(contents.readAll()).split(QLatin1Char('\n'))) {
        const QString file = line.section(QLatin1Char('\t'), 0, 0);
        if (!file.isEmpty())
            _pages.append({file, line.section(QLatin1Char('\t'), 1), QString()});
    }
}

QStringList HelpWindow::search(const QString &query)
{
    const QStringList words = query.toLower().split(QLatin1Char(' '), Qt::SkipEmptyParts);
    if (words.isEmpty())
        return {};
    // The pages are read when first searched: most people never search.
    if (!_indexed) {
        _indexed = true;
        for (Page &page : _pages) {
            QFile file(LmSettings::helpPath() + page.file);
            if (!file.open(QIODevice::ReadOnly))
                continue;
            QTextDocument document;
            document.setHtml(QString::fromUtf8(file.readAll()));
            page.text = document.toPlainText().toLower();
        }
    }
    QList<QPair<qsizetype, QString>> found;
    for (const Page &page : std::as_const(_pages)) {
        qsizetype hits = 0;
        for (const QString &word : words) {
            const qsizetype count = page.text.count(word);
            if (count == 0) {
                hits = 0;
                break;
            }
            hits += count;
        }
        if (hits > 0)
            found.append({hits, page.file});
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const auto &a, const auto &b) { return a.first > b.first; });
    QStringList files;
    for (const auto &[hits, file] : found)
        files.append(file);
    return files;
}

void HelpWindow::showResults(const QString &query)
{
    _list->clear();
    const bool searching = !query.trimmed().isEmpty();
    // Results in the order of their hits, the contents in their own.
    const QStringList files = searching ? search(query) : QStringList();
    for (const QString &file : files) {
        for (const Page &page : std::as_const(_pages)) {
            if (page.file == file)
                (new QListWidgetItem(page.title, _list))->setData(Qt::UserRole, page.file);
        }
    }
    if (!searching) {
        for (const Page &page : std::as_const(_pages))
            (new QListWidgetItem(page.title, _list))->setData(Qt::UserRole, page.file);
        for (int row = 0; row < _list->count(); ++row) {
            if (_list->item(row)->data(Qt::UserRole).toString() == currentPage())
                _list->setCurrentRow(row);
        }
    } else if (files.isEmpty()) {
        (new QListWidgetItem(tr("Nothing found"), _list))->setFlags(Qt::NoItemFlags);
    }
}

void HelpWindow::openItem(const QListWidgetItem *item)
{
    if (!item || !(item->flags() & Qt::ItemIsEnabled))
        return;
    showPage(item->data(Qt::UserRole).toString());
    // The first word searched for, found on the page.
    const QString word = _search->text().section(QLatin1Char(' '), 0, 0, QString::SectionSkipEmpty);
    if (!word.isEmpty())
        _browser->find(word);
}
