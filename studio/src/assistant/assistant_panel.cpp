#include "assistant/assistant_panel.hpp"

#include <QDialog>
#include <QDialogButtonBox>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QTimer>
#include <QTreeWidget>
#include <QVBoxLayout>

#include "morvane/app/session/project_session.hpp"

namespace morvane::studio {

using intelligence::AssistantCommand;
namespace AssistantCommandCatalog = intelligence::AssistantCommandCatalog;
using intelligence::AssistantCommandID;

namespace {

QString text(std::string_view s) {
    return QString::fromUtf8(s.data(), static_cast<qsizetype>(s.size()));
}

// A command button: the title in bold over its one-line subtitle.
QPushButton* makeCommandButton(const AssistantCommand& command, QWidget* parent) {
    auto* button = new QPushButton(parent);
    button->setObjectName(text(intelligence::kAssistantCommandIDNames.text(command.id)));
    button->setToolTip(text(command.subtitle));
    button->setMinimumHeight(52);
    button->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    auto* layout = new QVBoxLayout(button);
    layout->setContentsMargins(10, 6, 10, 6);
    layout->setSpacing(1);
    auto* title = new QLabel(text(command.title), button);
    QFont bold = title->font();
    bold.setBold(true);
    title->setFont(bold);
    auto* subtitle = new QLabel(text(command.subtitle), button);
    subtitle->setWordWrap(true);
    QFont small = subtitle->font();
    small.setPointSizeF(small.pointSizeF() * 0.85);
    subtitle->setFont(small);
    subtitle->setForegroundRole(QPalette::PlaceholderText);
    for (QLabel* label : {title, subtitle})
        label->setAttribute(Qt::WA_TransparentForMouseEvents);
    layout->addWidget(title);
    layout->addWidget(subtitle);
    return button;
}

}  // namespace

AssistantPanel::AssistantPanel(Actions actions, QWidget* parent)
    : QWidget(parent),
      actions_(std::move(actions)),
      more_(new QPushButton(QStringLiteral("More commands…"), this)),
      instruction_(new QLineEdit(this)),
      send_(new QPushButton(QStringLiteral("Send"), this)),
      chatScroll_(new QScrollArea(this)),
      chatContent_(new QWidget()),
      chatLayout_(new QVBoxLayout(chatContent_)),
      proposalBar_(new QFrame(this)),
      proposalText_(new QLabel(proposalBar_)),
      accept_(new QPushButton(QStringLiteral("Accept Cut"), proposalBar_)),
      reject_(new QPushButton(QStringLiteral("Reject"), proposalBar_)),
      checkpoint_(new QPushButton(QStringLiteral("Save checkpoint"), this)) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(8, 8, 8, 8);
    layout->setSpacing(6);

    auto* heading = new QLabel(QStringLiteral("Pick a cut"), this);
    QFont headingFont = heading->font();
    headingFont.setBold(true);
    headingFont.setPointSizeF(headingFont.pointSizeF() * 1.1);
    heading->setFont(headingFont);
    layout->addWidget(heading);

    auto* grid = new QGridLayout();
    grid->setSpacing(6);
    int cell = 0;
    for (const auto& command : AssistantCommandCatalog::primary()) {
        QPushButton* button = makeCommandButton(command, this);
        const AssistantCommandID id = command.id;
        QObject::connect(button, &QPushButton::clicked, [this, id] {
            if (actions_.runCommand) actions_.runCommand(id);
        });
        grid->addWidget(button, cell / 2, cell % 2);
        commandButtons_.emplace_back(id, button);
        ++cell;
    }
    layout->addLayout(grid);
    QObject::connect(more_, &QPushButton::clicked, [this] { showMoreCommands(); });
    layout->addWidget(more_);

    chatScroll_->setWidgetResizable(true);
    chatScroll_->setFrameShape(QFrame::StyledPanel);
    chatScroll_->setWidget(chatContent_);
    chatLayout_->setContentsMargins(6, 6, 6, 6);
    chatLayout_->setSpacing(6);
    chatLayout_->addStretch(1);
    layout->addWidget(chatScroll_, 1);

    proposalBar_->setObjectName(QStringLiteral("proposalBar"));
    proposalBar_->setFrameShape(QFrame::StyledPanel);
    proposalBar_->setStyleSheet(
        QStringLiteral("#proposalBar { background: #fff4d6; border: 1px solid #e0b84a; "
                       "border-radius: 4px; } #proposalBar QLabel { color: #3a2c00; }"));
    auto* bar = new QVBoxLayout(proposalBar_);
    bar->setContentsMargins(8, 6, 8, 6);
    proposalText_->setWordWrap(true);
    bar->addWidget(proposalText_);
    auto* buttons = new QHBoxLayout();
    accept_->setDefault(true);
    buttons->addWidget(accept_);
    buttons->addWidget(reject_);
    bar->addLayout(buttons);
    proposalBar_->hide();
    QObject::connect(accept_, &QPushButton::clicked, [this] {
        if (actions_.accept) actions_.accept();
    });
    QObject::connect(reject_, &QPushButton::clicked, [this] {
        if (actions_.reject) actions_.reject();
    });
    layout->addWidget(proposalBar_);

    auto* typed = new QHBoxLayout();
    instruction_->setPlaceholderText(QStringLiteral("Describe a cut, e.g. “keep the parts about licensing”"));
    typed->addWidget(instruction_, 1);
    typed->addWidget(send_);
    layout->addLayout(typed);
    QObject::connect(instruction_, &QLineEdit::returnPressed, [this] { submitInstruction(); });
    QObject::connect(send_, &QPushButton::clicked, [this] { submitInstruction(); });

    checkpoint_->setToolTip(QStringLiteral("Keep the timeline as it is now in the chat, to return to later"));
    QObject::connect(checkpoint_, &QPushButton::clicked, [this] {
        if (actions_.saveCheckpoint) actions_.saveCheckpoint();
    });
    layout->addWidget(checkpoint_);
}

void AssistantPanel::submitInstruction() {
    const std::string typed = instruction_->text().trimmed().toStdString();
    // Typing ahead is fine while a request runs; sending waits for it.
    if (typed.empty() || busy_ || !actions_.runInstruction) return;
    actions_.runInstruction(instruction_->text().toStdString());
    instruction_->clear();
}

QPushButton* AssistantPanel::commandButton(AssistantCommandID id) const {
    for (const auto& [commandID, button] : commandButtons_) {
        if (commandID == id) return button;
    }
    return nullptr;
}

std::vector<QPushButton*> AssistantPanel::restoreButtons() const {
    return restoreButtons_;
}

void AssistantPanel::sync(const app::ProjectSession& session) {
    const bool busy = session.isBusy();
    const bool canAsk = session.segments.has_value() && !busy;
    for (const auto& [id, button] : commandButtons_)
        button->setEnabled(canAsk && !session.isReviewingProposal());
    busy_ = busy;
    send_->setEnabled(!busy && session.segments.has_value());
    more_->setEnabled(!busy);
    checkpoint_->setEnabled(session.hasProject() && !busy);

    reviewing_ = session.isReviewingProposal();
    const bool drafting = session.isTranscriptDrafting();
    if (reviewing_ && session.pendingProposal) {
        const int kept = static_cast<int>(session.pendingProposal->keepSegmentIDs.size());
        const int total = session.segments ? static_cast<int>(session.segments->segments.size()) : kept;
        proposalText_->setText(QStringLiteral("Rough cut under review: %1 of %2 segments kept. Play it, then "
                                              "accept or reject it.")
                                   .arg(kept)
                                   .arg(total));
        accept_->setText(QStringLiteral("Accept Cut"));
        reject_->setText(QStringLiteral("Reject"));
    } else if (drafting) {
        proposalText_->setText(QStringLiteral("Transcript cut: %1 words struck. Accept it to make it the "
                                              "storyline.")
                                   .arg(session.removedWordIDs.size()));
        accept_->setText(QStringLiteral("Accept"));
        reject_->setText(QStringLiteral("Reset"));
    }
    proposalBar_->setVisible((reviewing_ || drafting) && !busy);

    if (session.chatMessages != shownMessages_) rebuildChat(session.chatMessages);
}

void AssistantPanel::rebuildChat(const std::vector<app::ChatMessage>& messages) {
    // Lines are few and change rarely (a request writes four or five): rebuilding them whole is simplest.
    while (chatLayout_->count() > 1) {
        QLayoutItem* item = chatLayout_->takeAt(0);
        delete item->widget();
        delete item;
    }
    restoreButtons_.clear();
    for (const auto& message : messages) {
        auto* line = new QFrame(chatContent_);
        auto* lineLayout = new QVBoxLayout(line);
        lineLayout->setContentsMargins(8, 5, 8, 5);
        lineLayout->setSpacing(4);
        auto* label = new QLabel(QString::fromStdString(message.text), line);
        label->setWordWrap(true);
        label->setTextInteractionFlags(Qt::TextSelectableByMouse);
        // Colours from the palette, so the lines read in light and dark appearances alike.
        QString frame = QStringLiteral("background: palette(alternate-base);");
        QString ink = QStringLiteral("palette(text)");
        if (message.role == app::ChatMessage::Role::user) {
            frame = QStringLiteral("background: palette(highlight);");
            ink = QStringLiteral("palette(highlighted-text)");
            label->setAlignment(Qt::AlignRight);
        } else if (message.role == app::ChatMessage::Role::system) {
            frame = QStringLiteral("background: palette(base); border: 1px dashed palette(mid);");
        }
        line->setObjectName(QStringLiteral("chatLine"));
        line->setStyleSheet(
            QStringLiteral("#chatLine { %1 border-radius: 6px; } #chatLine > QLabel { color: %2; "
                           "background: transparent; border: none; }")
                .arg(frame, ink));
        if (message.isThinking) {
            QFont italic = label->font();
            italic.setItalic(true);
            label->setFont(italic);
        }
        lineLayout->addWidget(label);
        if (message.isCutCheckpoint) {
            auto* restore = new QPushButton(QStringLiteral("Restore checkpoint"), line);
            restore->setObjectName(QStringLiteral("restoreCheckpoint"));
            const std::string id = message.id;
            QObject::connect(restore, &QPushButton::clicked, [this, id] {
                if (actions_.restoreCheckpoint) actions_.restoreCheckpoint(id);
            });
            lineLayout->addWidget(restore, 0, Qt::AlignLeft);
            restoreButtons_.push_back(restore);
        }
        chatLayout_->insertWidget(chatLayout_->count() - 1, line);
    }
    shownMessages_ = messages;
    // Scroll to the newest line once the layout has taken the new lines in.
    QTimer::singleShot(0, chatScroll_, [scroll = chatScroll_] {
        scroll->verticalScrollBar()->setValue(scroll->verticalScrollBar()->maximum());
    });
}

void AssistantPanel::showMoreCommands() {
    auto* sheet = new QDialog(this);
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    sheet->setWindowTitle(QStringLiteral("Commands"));
    sheet->setObjectName(QStringLiteral("commandSheet"));
    sheet->resize(560, 520);
    auto* layout = new QVBoxLayout(sheet);
    auto* tree = new QTreeWidget(sheet);
    tree->setColumnCount(2);
    tree->setHeaderLabels({QStringLiteral("Command"), QStringLiteral("What it does")});
    tree->header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    tree->setRootIsDecorated(false);
    std::optional<intelligence::AssistantCommandCategory> category;
    QTreeWidgetItem* group = nullptr;
    for (const auto& command : AssistantCommandCatalog::moreSheetCommands()) {
        if (category != command.category) {
            category = command.category;
            group = new QTreeWidgetItem(
                tree, QStringList{text(intelligence::kAssistantCommandCategoryNames.text(command.category))});
            QFont bold = group->font(0);
            bold.setBold(true);
            group->setFont(0, bold);
            group->setFlags(Qt::ItemIsEnabled);
            group->setFirstColumnSpanned(true);
            group->setExpanded(true);
        }
        auto* item = new QTreeWidgetItem(group, QStringList{text(command.title), text(command.subtitle)});
        item->setData(0, Qt::UserRole, static_cast<int>(command.id));
        if (command.backend == intelligence::AssistantCommandBackend::comingSoon) {
            item->setForeground(0, tree->palette().color(QPalette::PlaceholderText));
            item->setToolTip(0, QStringLiteral("Coming soon"));
        }
    }
    tree->expandAll();
    layout->addWidget(tree);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, sheet);
    QPushButton* run = buttons->addButton(QStringLiteral("Run"), QDialogButtonBox::AcceptRole);
    layout->addWidget(buttons);
    const auto runSelected = [this, tree, sheet] {
        const QTreeWidgetItem* item = tree->currentItem();
        if (!item || !item->data(0, Qt::UserRole).isValid()) return;
        const auto id = static_cast<AssistantCommandID>(item->data(0, Qt::UserRole).toInt());
        sheet->accept();
        if (actions_.runCommand) actions_.runCommand(id);
    };
    QObject::connect(run, &QPushButton::clicked, sheet, runSelected);
    QObject::connect(tree, &QTreeWidget::itemDoubleClicked, sheet, runSelected);
    QObject::connect(buttons, &QDialogButtonBox::rejected, sheet, &QDialog::reject);
    sheet->open();
}

}  // namespace morvane::studio
