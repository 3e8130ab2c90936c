#pragma once

#include <QList>
#include <QString>
#include <QWidget>

class PinRow;
class QScrollArea;
class QVBoxLayout;

// A titled, scrolling box of pin rows.
class PinList : public QWidget {
    Q_OBJECT
public:
    static constexpr int maximumListHeight = 280;

    explicit PinList(QString title, QWidget* parent = nullptr);

    QString title() const { return m_title; }
    // Replaces the rows, in order; the list takes them over.
    void setRows(const QList<PinRow*>& rows);
    QList<PinRow*> rows() const { return m_rows; }

protected:
    void paintEvent(QPaintEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QString m_title;
    QWidget* m_box;
    QScrollArea* m_scrollArea;
    QVBoxLayout* m_rowLayout;
    QList<PinRow*> m_rows;
};
