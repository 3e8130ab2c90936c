#pragma once

#include <QList>
#include <QPair>
#include <QString>
#include <QWidget>

class PinList;
class PinRow;
class QLabel;
class QLineEdit;
class QPushButton;
class SettingsViewModel;

// The "General" tab: the API token with "Load" and the link to get one, then the collections
// and tags to pin (or what stands in their place), then the last load's error.
class GeneralTab : public QWidget {
    Q_OBJECT
public:
    // Only the most used tags are offered; the service sends them first.
    static constexpr int maximumTagRows = 50;

    // The link to get a token leads into the web application at webApp.
    GeneralTab(SettingsViewModel* model, const QString& webApp, QWidget* parent = nullptr);

protected:
    void changeEvent(QEvent* event) override;

private:
    void updateErrorColor();
    void updateTabOrder();
    void showToken();
    void updateButtons();
    void updateMiddle();
    void rebuildCollectionRows();
    void rebuildTagRows();
    void updateCollectionTicks();
    void updateTagTicks();
    void updateError();

    SettingsViewModel* m_model;
    QLineEdit* m_tokenField;
    QPushButton* m_loadButton;
    QLabel* m_link;
    QWidget* m_loadingRow;
    QWidget* m_listsRow;
    QLabel* m_hint;
    QLabel* m_error;
    PinList* m_collectionsList;
    PinList* m_tagsList;
    QList<QPair<qint64, PinRow*>> m_collectionRows;
    QList<QPair<QString, PinRow*>> m_tagRows;
};
