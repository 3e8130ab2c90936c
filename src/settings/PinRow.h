#pragma once

#include <QAbstractButton>
#include <QString>

#include <functional>
#include <optional>

// One clickable line of a pin list: a tick box, the label and an optional badge at the right.
// The whole line is the button; a click (or Space while it has the focus) runs toggle and changes
// nothing else, the owner sets the tick from its model.
class PinRow : public QAbstractButton {
    Q_OBJECT
public:
    static constexpr int boxSize = 14;
    static constexpr int spacing = 6;
    static constexpr int verticalPadding = 2;

    PinRow(QString label, std::optional<QString> badge, bool pinned, std::function<void()> toggle,
           QWidget* parent = nullptr);

    QString label() const { return m_label; }
    std::optional<QString> badge() const { return m_badge; }
    bool isPinned() const { return isChecked(); }
    void setPinned(bool pinned);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    void nextCheckState() override;

private:
    QString m_label;
    std::optional<QString> m_badge;
    std::function<void()> m_toggle;
};
