// helpbuild SOURCE_DIR OUTPUT_DIR
//
// Renders the help pages (SOURCE_DIR/*.md) to HTML in OUTPUT_DIR, each in SOURCE_DIR/template.html,
// and writes OUTPUT_DIR/contents.txt: "FILE<TAB>TITLE" for index.html and then every page in the
// order index.md links to it. Links to another page's .md become links to its .html. A page the
// contents leave out, or a link to a page that does not exist, fails the build.

#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QRegularExpression>
#include <QSaveFile>
#include <QSet>
#include <QTextDocument>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

int fail(const QString &message)
{
    std::fprintf(stderr, "helpbuild: %s\n", qPrintable(message));
    return 1;
}

QString readText(const QString &path, bool *ok)
{
    QFile file(path);
    *ok = file.open(QIODevice::ReadOnly);
    return QString::fromUtf8(file.readAll());
}

bool writeText(const QString &path, const QString &text)
{
    QSaveFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(text.toUtf8()) >= 0 && file.commit();
}

// The first level-one heading.
QString titleOf(const QString &markdown)
{
    static const QRegularExpression heading(u"^# +(.+?) *$"_s, QRegularExpression::MultilineOption);
    return heading.match(markdown).captured(1);
}

// The pages a page links to ("logging" for "(logging.md)" or "(logging.md#anchor)"), in order.
QStringList linkedPages(const QString &markdown)
{
    static const QRegularExpression link(uR"(\]\(([A-Za-z0-9_-]+)\.md(?:#[^)\s]*)?\))"_s);
    QStringList pages;
    for (auto it = link.globalMatch(markdown); it.hasNext();) {
        const QString page = it.next().captured(1);
        if (!pages.contains(page))
            pages.append(page);
    }
    return pages;
}

// The page's content as HTML, without the document's own head and body style: the template
// gives the look, not the fonts of the machine that built it.
QString renderBody(QString markdown)
{
    static const QRegularExpression link(uR"(\]\(([A-Za-z0-9_-]+)\.md(#[^)\s]*)?\))"_s);
    markdown.replace(link, u"](\\1.html\\2)"_s);
    QTextDocument document;
    document.setMarkdown(markdown, QTextDocument::MarkdownDialectGitHub);
    const QString html = document.toHtml();
    const qsizetype body = html.indexOf(u"<body"_s);
    const qsizetype start = html.indexOf(u'>', body) + 1;
    const qsizetype end = html.lastIndexOf(u"</body>"_s);
    QString content = body < 0 || end < start ? html : html.mid(start, end - start).trimmed();
    // Headings get their spacing from the template.
    static const QRegularExpression heading(uR"(<(h[1-6]) style="[^"]*">)"_s);
    return content.replace(heading, u"<\\1>"_s);
}

} // namespace

int main(int argc, char *argv[])
{
    // Fonts need a GUI application; no display is needed to lay out text.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() != 3)
        return fail(u"usage: helpbuild SOURCE_DIR OUTPUT_DIR"_s);
    const QDir source(args.at(1));
    const QDir output(args.at(2));
    if (!QDir().mkpath(output.path()))
        return fail(u"cannot make %1"_s.arg(output.path()));

    bool ok = false;
    const QString pageTemplate = readText(source.filePath(u"template.html"_s), &ok);
    if (!ok)
        return fail(u"no template.html in %1"_s.arg(source.path()));
    QStringList pages;
    for (const QString &file : source.entryList({u"*.md"_s}, QDir::Files, QDir::Name))
        pages.append(file.chopped(3));
    if (!pages.contains(u"index"_s))
        return fail(u"no index.md in %1"_s.arg(source.path()));

    QString contents;
    const QStringList listed =
        QStringList{u"index"_s} + linkedPages(readText(source.filePath(u"index.md"_s), &ok));
    for (const QString &page : pages) {
        if (!listed.contains(page))
            return fail(u"%1.md is not in the contents (index.md)"_s.arg(page));
    }
    QSet<QString> written;
    for (const QString &page : listed) {
        const QString markdown = readText(source.filePath(page + u".md"_s), &ok);
        if (!ok)
            return fail(u"index.md links to %1.md, which does not exist"_s.arg(page));
        for (const QString &target : linkedPages(markdown)) {
            if (!pages.contains(target))
                return fail(u"%1.md links to %2.md, which does not exist"_s.arg(page, target));
        }
        const QString title = titleOf(markdown);
        if (title.isEmpty())
            return fail(u"%1.md has no title (a line \"# Title\")"_s.arg(page));
        QString html = pageTemplate;
        html.replace(u"%TITLE%"_s, title.toHtmlEscaped());
        html.replace(u"%NAV%"_s, page == u"index"_s ? QString() : u"<a href=\"index.html\">Contents</a>"_s);
        html.replace(u"%BODY%"_s, renderBody(markdown));
        const QString file = page + u".html"_s;
        if (!writeText(output.filePath(file), html))
            return fail(u"cannot write %1"_s.arg(output.filePath(file)));
        written.insert(file);
        contents += file + u'\t' + title + u'\n';
    }
    // Pages that were removed from the sources go from the output too.
    for (const QString &old : output.entryList({u"*.html"_s}, QDir::Files)) {
        if (!written.contains(old))
            QFile::remove(output.filePath(old));
    }
    if (!writeText(output.filePath(u"contents.txt"_s), contents))
        return fail(u"cannot write %1"_s.arg(output.filePath(u"contents.txt"_s)));
    return 0;
}
