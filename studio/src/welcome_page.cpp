#include "welcome_page.hpp"

#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

#include "file_drop.hpp"

namespace morvane::studio {

WelcomePage::WelcomePage(Actions actions, QWidget* parent)
    : QWidget(parent),
      actions_(std::move(actions)),
      message_(new QLabel(this)),
      recentTitle_(new QLabel(QStringLiteral("Recent projects"), this)),
      recent_(new QListWidget(this)) {
    setAcceptDrops(true);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(40, 30, 40, 30);
    layout->addStretch(2);

    auto* title = new QLabel(QStringLiteral("Morvane"), this);
    QFont big = title->font();
    big.setPointSizeF(big.pointSizeF() * 2.4);
    big.setBold(true);
    title->setFont(big);
    title->setAlignment(Qt::AlignCenter);
    layout->addWidget(title);

    auto* slogan = new QLabel(QStringLiteral("Drop a file, pick a cut, export."), this);
    QFont medium = slogan->font();
    medium.setPointSizeF(medium.pointSizeF() * 1.2);
    slogan->setFont(medium);
    slogan->setAlignment(Qt::AlignCenter);
    layout->addWidget(slogan);

    message_->setAlignment(Qt::AlignCenter);
    message_->setWordWrap(true);
    message_->setObjectName(QStringLiteral("welcomeMessage"));
    layout->addSpacing(18);
    layout->addWidget(message_);
    layout->addSpacing(12);

    auto* buttons = new QHBoxLayout();
    buttons->addStretch(1);
    auto* create = new QPushButton(QStringLiteral("New Project"), this);
    auto* import = new QPushButton(QStringLiteral("Import Media…"), this);
    import->setDefault(true);
    buttons->addWidget(create);
    buttons->addWidget(import);
    buttons->addStretch(1);
    layout->addLayout(buttons);
    QObject::connect(create, &QPushButton::clicked, [this] {
        if (actions_.newProject) actions_.newProject();
    });
    QObject::connect(import, &QPushButton::clicked, [this] {
        if (actions_.importMedia) actions_.importMedia();
    });

    layout->addSpacing(24);
    QFont bold = recentTitle_->font();
    bold.setBold(true);
    recentTitle_->setFont(bold);
    layout->addWidget(recentTitle_, 0, Qt::AlignHCenter);
    recent_->setMaximumWidth(520);
    recent_->setMaximumHeight(180);
    layout->addWidget(recent_, 0, Qt::AlignHCenter);
    QObject::connect(recent_, &QListWidget::itemActivated, [this](QListWidgetItem* item) {
        if (actions_.openRecent) actions_.openRecent(item->data(Qt::UserRole).toString().toStdString());
    });
    layout->addStretch(3);
    setRecentProjects({});
}

void WelcomePage::setMessage(const QString& text) {
    message_->setText(text);
}

void WelcomePage::setRecentProjects(const std::vector<std::filesystem::path>& bundles) {
    recent_->clear();
    for (const auto& bundle : bundles) {
        auto* item =
            new QListWidgetItem(QString::fromStdString(bundle.stem().string()) + QStringLiteral("  —  ") +
                                QString::fromStdString(bundle.parent_path().string()));
        item->setData(Qt::UserRole, QString::fromStdString(bundle.string()));
        recent_->addItem(item);
    }
    recent_->setVisible(!bundles.empty());
    recentTitle_->setVisible(!bundles.empty());
}

void WelcomePage::dragEnterEvent(QDragEnterEvent* event) {
    acceptFileDrag(event);
}

void WelcomePage::dropEvent(QDropEvent* event) {
    takeFileDrop(event, actions_.dropFiles);
}

}  // namespace morvane::studio
