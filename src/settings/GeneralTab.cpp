#include "settings/GeneralTab.h"

#include "settings/LinkLabel.h"
#include "settings/PinList.h"
#include "settings/PinRow.h"
#include "settings/SettingsStyle.h"
#include "settings/SettingsViewModel.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

GeneralTab::GeneralTab(SettingsViewModel* model, const QString& webApp, QWidget* parent)
    : QWidget(parent)
    , m_model(model) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 20, 20, 20);
    layout->setSpacing(20);

    // The token, "Load" and where to get a token.
    auto* tokenSection = new QVBoxLayout();
    tokenSection->setSpacing(6);
    auto* heading = new QLabel(u"API Token"_s, this);
    heading->setObjectName(u"tokenHeading"_s);
    heading->setFont(SettingsStyle::headlineFont(heading->font()));
    tokenSection->addWidget(heading);

    auto* tokenRow = new QHBoxLayout();
    m_tokenField = new QLineEdit(this);
    m_tokenField->setObjectName(u"tokenField"_s);
    m_tokenField->setPlaceholderText(u"Paste your Raindrop API token"_s);
    m_tokenField->setAccessibleName(u"API Token"_s);
    tokenRow->addWidget(m_tokenField, 1);
    m_loadButton = new QPushButton(u"Load"_s, this);
    m_loadButton->setObjectName(u"loadButton"_s);
    tokenRow->addWidget(m_loadButton);
    tokenSection->addLayout(tokenRow);

    const QString host = QUrl(webApp).host();
    const QString target = webApp + u"/settings/integrations"_s;
    m_link = new LinkLabel(target, u"Get your API token at "_s + host + u" → Integrations"_s, this);
    m_link->setObjectName(u"tokenLink"_s);
    m_link->setFont(SettingsStyle::captionFont(m_link->font()));
    tokenSection->addWidget(m_link, 0, Qt::AlignLeft);
    layout->addLayout(tokenSection);

    // Exactly one of: the loading row, the two lists, the hint, nothing.
    m_loadingRow = new QWidget(this);
    m_loadingRow->setObjectName(u"loadingRow"_s);
    auto* loadingLayout = new QHBoxLayout(m_loadingRow);
    loadingLayout->setContentsMargins(0, 0, 0, 0);
    auto* spinner = new QProgressBar(m_loadingRow);
    spinner->setObjectName(u"loadingIndicator"_s);
    spinner->setRange(0, 0);
    spinner->setTextVisible(false);
    spinner->setFixedSize(80, 12);
    loadingLayout->addWidget(spinner);
    auto* loadingText = new QLabel(u"Loading…"_s, m_loadingRow);
    loadingText->setForegroundRole(SettingsStyle::secondaryRole);
    loadingLayout->addWidget(loadingText);
    loadingLayout->addStretch(1);
    layout->addWidget(m_loadingRow);

    m_listsRow = new QWidget(this);
    m_listsRow->setObjectName(u"pinLists"_s);
    auto* listsLayout = new QHBoxLayout(m_listsRow);
    listsLayout->setContentsMargins(0, 0, 0, 0);
    listsLayout->setSpacing(16);
    m_collectionsList = new PinList(u"📁 Pinned Collections"_s, m_listsRow);
    m_collectionsList->setObjectName(u"collectionsList"_s);
    listsLayout->addWidget(m_collectionsList, 1);
    m_tagsList = new PinList(u"\U0001F3F7 Pinned Tags"_s, m_listsRow);
    m_tagsList->setObjectName(u"tagsList"_s);
    listsLayout->addWidget(m_tagsList, 1);
    // The lists take the room below the token first; the closing stretch gets what is left
    // once they reach their maximum height.
    layout->addWidget(m_listsRow, 100);

    m_hint = new QLabel(u"Click Load to fetch your collections and tags."_s, this);
    m_hint->setObjectName(u"loadHint"_s);
    m_hint->setForegroundRole(SettingsStyle::secondaryRole);
    layout->addWidget(m_hint);

    m_error = new QLabel(this);
    m_error->setObjectName(u"errorCaption"_s);
    m_error->setFont(SettingsStyle::captionFont(m_error->font()));
    // Service texts are shown as they are, never read as markup.
    m_error->setTextFormat(Qt::PlainText);
    m_error->setWordWrap(true);
    m_error->setTextInteractionFlags(Qt::TextSelectableByMouse);
    updateErrorColor();
    layout->addWidget(m_error);
    layout->addStretch(1);

    connect(m_tokenField, &QLineEdit::textEdited, m_model, &SettingsViewModel::setToken);
    // The task is not kept: the load reports through the model and ends on its own.
    connect(m_loadButton, &QPushButton::clicked, m_model, [this] { m_model->loadData(); });

    connect(m_model, &SettingsViewModel::tokenChanged, this, [this] {
        showToken();
        updateButtons();
        updateMiddle();
    });
    connect(m_model, &SettingsViewModel::isLoadingChanged, this, [this] {
        updateButtons();
        updateMiddle();
    });
    connect(m_model, &SettingsViewModel::collectionsChanged, this, [this] {
        rebuildCollectionRows();
        updateMiddle();
    });
    connect(m_model, &SettingsViewModel::tagsChanged, this, [this] {
        rebuildTagRows();
        updateMiddle();
    });
    connect(m_model, &SettingsViewModel::pinnedCollectionIdsChanged, this,
            &GeneralTab::updateCollectionTicks);
    connect(m_model, &SettingsViewModel::pinnedTagsChanged, this, &GeneralTab::updateTagTicks);
    connect(m_model, &SettingsViewModel::errorMessageChanged, this, &GeneralTab::updateError);

    showToken();
    rebuildCollectionRows();
    rebuildTagRows();
    updateButtons();
    updateMiddle();
    updateError();
}

void GeneralTab::changeEvent(QEvent* event) {
    if (event->type() == QEvent::PaletteChange)
        updateErrorColor();
    QWidget::changeEvent(event);
}

void GeneralTab::updateErrorColor() {
    SettingsStyle::setTextColor(m_error, SettingsStyle::errorColor(palette()));
}

void GeneralTab::showToken() {
    // Only when it differs, so that typing keeps the cursor where it is.
    if (m_tokenField->text() != m_model->token())
        m_tokenField->setText(m_model->token());
}

void GeneralTab::updateButtons() {
    m_loadButton->setEnabled(!m_model->token().isEmpty() && !m_model->isLoading());
}

void GeneralTab::updateMiddle() {
    const bool loading = m_model->isLoading();
    const bool fetched = !m_model->collections().isEmpty() || !m_model->tags().isEmpty();
    m_loadingRow->setVisible(loading);
    m_listsRow->setVisible(!loading && fetched);
    m_hint->setVisible(!loading && !fetched && !m_model->token().isEmpty());
}

void GeneralTab::rebuildCollectionRows() {
    m_collectionRows.clear();
    QList<PinRow*> rows;
    const QSet<qint64> pinned = m_model->pinnedCollectionIds();
    for (const Collection& collection : m_model->collections()) {
        // Empty collections carry no badge.
        const std::optional<QString> badge =
            collection.count >= 1 ? std::optional(QString::number(collection.count)) : std::nullopt;
        const qint64 id = collection.id;
        auto* row = new PinRow(collection.title, badge, pinned.contains(id),
                               [this, id] { m_model->toggleCollection(id); });
        m_collectionRows.append({id, row});
        rows.append(row);
    }
    m_collectionsList->setRows(rows);
    updateTabOrder();
}

void GeneralTab::rebuildTagRows() {
    m_tagRows.clear();
    QList<PinRow*> rows;
    const QSet<QString> pinned = m_model->pinnedTags();
    const QList<Tag> tags = m_model->tags().mid(0, maximumTagRows);
    for (const Tag& tag : tags) {
        // Tags always show their count, 0 included.
        const QString name = tag.name;
        auto* row = new PinRow(u"#"_s + name, QString::number(tag.count), pinned.contains(name),
                               [this, name] { m_model->toggleTag(name); });
        m_tagRows.append({name, row});
        rows.append(row);
    }
    m_tagsList->setRows(rows);
    updateTabOrder();
}

void GeneralTab::updateTabOrder() {
    // Rows made after the window are otherwise reached last, after "Save"; they belong right
    // after the link, collections first.
    QWidget* previous = m_link;
    for (PinRow* row : m_collectionsList->rows() + m_tagsList->rows()) {
        setTabOrder(previous, row);
        previous = row;
    }
}

void GeneralTab::updateCollectionTicks() {
    const QSet<qint64> pinned = m_model->pinnedCollectionIds();
    for (const auto& [id, row] : std::as_const(m_collectionRows))
        row->setPinned(pinned.contains(id));
}

void GeneralTab::updateTagTicks() {
    const QSet<QString> pinned = m_model->pinnedTags();
    for (const auto& [name, row] : std::as_const(m_tagRows))
        row->setPinned(pinned.contains(name));
}

void GeneralTab::updateError() {
    const std::optional<QString> message = m_model->errorMessage();
    m_error->setText(message.value_or(QString()));
    m_error->setVisible(message.has_value());
}
