#pragma once

// The brand: typed values (bool, int, string), images and text variables read from brand.dat, a
// tar archive of XML documents and image files. One engine per process, created on first use and
// released at shut-down. A query for an id the brand does not define is a fatal error, so callers
// ask idExists() first for optional ids.
//
// When two elements define the same id in the same table, the later one wins: files are read in
// the archive's name order and elements in document order, so an overlay file whose name sorts
// after the base file overrides it.

#include <QHash>
#include <QPixmap>
#include <QString>
#include <QStringList>
#include <QXmlStreamReader>

#include <memory>
#include <vector>

class TarFileReader;

// Values for the URL variables that are not fixed by the build.
struct BrandUrlValues
{
    QString userName;   // the profile's web account name; empty when not set
    QString password;   // the profile's web password (clear text); empty when not set
    QString contentDir; // local folder of the reference database, ending with a separator
};

class BrandEngine
{
public:
    enum class ValueType { Bool, Int, String, Image };

    static BrandEngine &instance();
    // Destroys the process-wide engine (shut-down, tests); the next instance() makes a new one.
    static void release();

    ~BrandEngine();
    BrandEngine(const BrandEngine &) = delete;
    BrandEngine &operator=(const BrandEngine &) = delete;

    // Reads every brand XML member of the archive. False only when it cannot be opened.
    bool load(const QString &archivePath);

    bool idExists(const QString &id) const;
    bool getBool(const QString &id) const;
    int getInt(const QString &id) const;
    QString getString(const QString &id) const;

    // The image's file contents, read from its archive now; fatal when the id is unknown or the
    // file is missing or empty.
    QByteArray getImageData(const QString &id) const;
    // Decoded once per load. Where the screens are denser than 1 and the archive holds
    // "<name>@2x.<suffix>" beside the image, that one is used, at a device pixel ratio of 2.
    QPixmap getPixmap(const QString &id) const;
    QPixmap getPixmap(const QString &id, qreal devicePixelRatio) const;
    QPixmap *getNewPixmap(const QString &id) const; // owned by the caller
    QString getImageFile(const QString &id) const;  // the member name; fatal when unknown

    // Every id defined in one table, sorted.
    QStringList ids(ValueType type) const;

    // Replaces each "${NAME}" by getString(name in lower case), repeatedly from the start, until
    // no variable is left. An unknown name is fatal. A value that refers to itself would never
    // end: after kMaxExpansionRounds replacements, or once the text outgrows kMaxExpandedLength,
    // the expansion stops with a warning and the text stays as far as it got.
    QString expandBrandVariables(const QString &text) const;
    static constexpr int kMaxExpansionRounds = 64;
    static constexpr qsizetype kMaxExpandedLength = 64 * 1024;

    // Fills the URL variables of a brand URL in place, then expands the remaining brand
    // variables. The user's values go in percent-encoded, so that they can neither change the
    // URL's shape nor be taken for brand variables. Returns an error text, empty on success (the
    // text explains that the web account is not set when the URL needs it).
    QString expandUrlVariables(QString &url, const BrandUrlValues &values) const;

    // The platform and product filters applied to every element at load.
    static bool platformMatches(const QString &platformAttribute);
    static bool productMatches(const QString &productAttribute, const QString &keyword);

private:
    BrandEngine();

    int _generation = 0; // tells the decoded images of one load from another's
    void loadDocument(TarFileReader &archive, const QString &memberName);
    struct Element
    {
        QString tag;
        QXmlStreamAttributes attributes;
    };
    void handleElement(TarFileReader &archive, const Element &element, const QString &memberName);

    struct ImageRef
    {
        TarFileReader *archive = nullptr;
        QString fileRef;
    };

    // A member of the image's archive; fatal when it is missing or empty.
    QByteArray readImage(const ImageRef &image, const QString &member, const QString &id) const;

    std::vector<std::unique_ptr<TarFileReader>> _archives;
    QHash<QString, bool> _bools;
    QHash<QString, int> _ints;
    QHash<QString, ImageRef> _images;
    QHash<QString, QString> _strings;
};
