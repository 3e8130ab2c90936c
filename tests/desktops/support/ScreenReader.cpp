#include "ScreenReader.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QTemporaryDir>

#include <algorithm>
#include <sys/stat.h>
#include <tuple>

namespace {

QRect rectOf(const QJsonValue& value) {
    const QJsonArray r = value.toArray();
    return QRect(r.at(0).toInt(), r.at(1).toInt(), r.at(2).toInt(), r.at(3).toInt());
}

} // namespace

QStringList ScreenReader::Menu::labels() const {
    QStringList labels;
    for (const Entry& entry : entries)
        labels.append(entry.isSeparator() ? QStringLiteral("---") : entry.label);
    return labels;
}

const ScreenReader::Entry* ScreenReader::Menu::find(const QString& label) const {
    for (const Entry& entry : entries)
        if (!entry.isSeparator() && entry.label == label)
            return &entry;
    return nullptr;
}

bool ScreenReader::start(const QString& folder) {
    m_requests = folder + QStringLiteral("/read-screen.pipe");
    QFile::remove(m_requests);
    if (mkfifo(m_requests.toLocal8Bit().constData(), 0600) != 0)
        return false;
    if (!m_helper.start({QStringLiteral("/usr/bin/python3"),
                         QStringLiteral(QUILLMAR_READ_SCREEN_SCRIPT), m_requests},
                        folder + QStringLiteral("/read-screen.log"), true))
        return false;
    // The helper says so once it listens.
    const auto ready = m_helper.readLine(std::chrono::seconds(30));
    return ready && ready->contains("ready");
}

void ScreenReader::stop() {
    m_helper.stop();
}

QJsonValue ScreenReader::ask(const QString& request) {
    QFile pipe(m_requests);
    if (!pipe.open(QIODevice::WriteOnly))
        return {};
    pipe.write(request.toUtf8() + '\n');
    pipe.close();
    const auto line = m_helper.readLine(std::chrono::seconds(60));
    if (!line)
        return {};
    const QJsonDocument answer = QJsonDocument::fromJson(*line);
    return answer.isArray() ? QJsonValue(answer.array()) : QJsonValue();
}

QList<ScreenReader::Menu> ScreenReader::menus(const QStringList& applications) {
    QList<Menu> menus;
    const QString request = (QStringList{QStringLiteral("menus")} + applications).join(u'\t');
    for (const QJsonValue& value : ask(request).toArray()) {
        Menu menu;
        menu.application = value[QStringLiteral("application")].toString();
        menu.rect = rectOf(value[QStringLiteral("rect")]);
        for (const QJsonValue& item : value[QStringLiteral("entries")].toArray())
            menu.entries.append(
                {item[QStringLiteral("label")].toString(), item[QStringLiteral("role")].toString(),
                 item[QStringLiteral("enabled")].toBool(), rectOf(item[QStringLiteral("rect")]),
                 rectOf(item[QStringLiteral("view")])});
        menus.append(menu);
    }
    return menus;
}

QList<QRect> ScreenReader::find(const QString& application, const QString& role,
                                const QString& name) {
    // Read by a helper of its own, which sees the objects as they are now.
    const auto result = ChildProcess::run(
        {QStringLiteral("/usr/bin/python3"), QStringLiteral(QUILLMAR_READ_SCREEN_SCRIPT),
         QStringLiteral("--once"), QStringLiteral("find"), application, role, name},
        std::chrono::seconds(60));
    QList<QRect> found;
    for (const QJsonValue& value : QJsonDocument::fromJson(result.output).array())
        found.append(rectOf(value[QStringLiteral("rect")]));
    return found;
}

QList<ScreenReader::TextLine> ScreenReader::readText(const QString& screenshot, QRect part,
                                                     bool dark, int scale, Enlarging enlarging) {
    QTemporaryDir work;
    const QString image = work.filePath(QStringLiteral("part.png"));
    QStringList convert{QStringLiteral("convert"), screenshot, QStringLiteral("-crop"),
                        QStringLiteral("%1x%2+%3+%4")
                            .arg(part.width())
                            .arg(part.height())
                            .arg(part.x())
                            .arg(part.y()),
                        QStringLiteral("+repage")};
    if (dark)
        convert.append(QStringLiteral("-negate"));
    convert +=
        {enlarging == Enlarging::Smooth ? QStringLiteral("-resize") : QStringLiteral("-scale"),
         QStringLiteral("%1%").arg(scale * 100), image};
    if (ChildProcess::run(convert, std::chrono::seconds(30)).exitCode != 0)
        return {};
    const auto tsv =
        ChildProcess::run({QStringLiteral("tesseract"), image, QStringLiteral("-"),
                           QStringLiteral("--psm"), QStringLiteral("4"), QStringLiteral("tsv")},
                          std::chrono::seconds(60));
    // Words grouped into their lines: block, paragraph and line numbers name a line.
    QMap<std::tuple<int, int, int, int>, TextLine> lines;
    for (const QString& row : QString::fromUtf8(tsv.output).split(u'\n')) {
        const QStringList columns = row.split(u'\t');
        if (columns.size() < 12 || columns.at(0) != QStringLiteral("5"))
            continue;
        const QString word = columns.at(11).trimmed();
        // A mark OCR cannot read (an emoji or symbol before a menu label) comes out as one to
        // three characters read with little confidence; words are read with far more.
        if (word.isEmpty() || (word.size() <= 3 && columns.at(10).toDouble() < 80))
            continue;
        const QRect box(columns.at(6).toInt() / scale + part.x(),
                        columns.at(7).toInt() / scale + part.y(), columns.at(8).toInt() / scale,
                        columns.at(9).toInt() / scale);
        // Words far apart on one line are texts of their own (a menu entry's key hint).
        std::tuple<int, int, int, int> key{columns.at(2).toInt(), columns.at(3).toInt(),
                                           columns.at(4).toInt(), 0};
        while (lines.contains(key) && box.left() - lines[key].rect.right() > 40)
            ++std::get<3>(key);
        TextLine& line = lines[key];
        line.text = line.text.isEmpty() ? word : line.text + u' ' + word;
        line.rect = line.rect.isNull() ? box : line.rect.united(box);
    }
    QList<TextLine> ordered = lines.values();
    std::sort(ordered.begin(), ordered.end(),
              [](const TextLine& a, const TextLine& b) { return a.rect.top() < b.rect.top(); });
    return ordered;
}
