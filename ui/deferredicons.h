#pragma once

// The style's standard icons, read only when first drawn. Qt reads each from a file whose format
// it finds by loading every image plug-in, a cost the first window would otherwise pay for icons
// it never shows (a tool bar's extension arrow, a line edit's clear button).

#include <QProxyStyle>

class DeferredIconStyle : public QProxyStyle
{
public:
    using QProxyStyle::QProxyStyle;
    QIcon standardIcon(StandardPixmap which, const QStyleOption *option = nullptr,
                       const QWidget *widget = nullptr) const override;
};
