#pragma once

#include "ChildProcess.h"

#include <QJsonValue>
#include <QList>
#include <QRect>
#include <QString>
#include <QStringList>

// Reads what the desktop shows: the open menus and their entries with their labels, enabled
// state and place on the screen, and the objects of a shell, through the accessibility bus
// (AT-SPI, read by a helper that runs for the whole session); and lines of text on a screenshot
// through OCR (tesseract), for what a shell does not expose.
class ScreenReader {
public:
    struct Entry {
        QString label;
        // "item", "submenu" (opens a menu), "separator" or "other".
        QString role;
        bool enabled = false;
        QRect rect;
        // The part of its menu it shows in: a scrolled part of a menu shows only some entries.
        QRect view;

        // Whether it shows where a click reaches it, not scrolled away.
        bool isShown() const { return view.contains(rect.center()); }

        bool isSeparator() const { return role == QStringLiteral("separator"); }
    };
    struct Menu {
        // The program that shows it.
        QString application;
        QRect rect;
        QList<Entry> entries;

        // The entries' labels, separators as "---".
        QStringList labels() const;
        // The first entry showing label; none when there is none.
        const Entry* find(const QString& label) const;
    };
    struct TextLine {
        QString text;
        QRect rect;
    };

    ScreenReader() = default;
    ScreenReader(const ScreenReader&) = delete;
    ScreenReader& operator=(const ScreenReader&) = delete;

    // Starts the helper in the running session (the accessibility bus must be up); folder
    // takes its request pipe and log.
    bool start(const QString& folder);
    void stop();

    // The open menus of these applications (none named: of every application), in the order
    // they were first seen. Reading fewer applications' objects is faster.
    QList<Menu> menus(const QStringList& applications = {});
    // The showing objects of an application with that role ("push button"; empty: any) and
    // that name (empty: any).
    QList<QRect> find(const QString& application, const QString& role, const QString& name);

    // How text is enlarged for OCR: smoothly, or each pixel repeated (which reads LXQt's
    // tooltip, whose smoothed letters OCR takes for others).
    enum class Enlarging { Smooth, Pixels };
    // The lines of text in part of a screenshot; dark: light text on a dark ground, which OCR
    // reads better negated. OCR reads small text better enlarged: scale times.
    static QList<TextLine> readText(const QString& screenshot, QRect part, bool dark, int scale = 2,
                                    Enlarging enlarging = Enlarging::Smooth);

private:
    QJsonValue ask(const QString& request);

    ChildProcess m_helper;
    QString m_requests;
};
