#include "transcription_language_dialog.hpp"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>
#include <filesystem>
#include <iostream>

#include "morvane/engine/support/preferences_store.hpp"

namespace morvane::studio {

using intelligence::TranscriptionPromptMode;
namespace TranscriptionLocale = intelligence::TranscriptionLocale;

TranscriptionLanguageDialog::TranscriptionLanguageDialog(const std::string& fileLabel,
                                                         const std::vector<std::string>& locales,
                                                         PreferencesStore& preferences, QWidget* parent)
    : QDialog(parent), preferences_(preferences), language_(new QComboBox(this)), mode_(new QComboBox(this)) {
    setWindowTitle(QStringLiteral("Transcription Language"));
    setObjectName(QStringLiteral("transcriptionLanguage"));
    auto* layout = new QVBoxLayout(this);
    auto* question = new QLabel(
        QStringLiteral("Which language is spoken in “%1”?").arg(QString::fromStdString(fileLabel)), this);
    question->setWordWrap(true);
    layout->addWidget(question);

    for (const auto& locale : locales) {
        language_->addItem(QString::fromStdString(TranscriptionLocale::displayName(locale)),
                           QString::fromStdString(locale));
    }
    const std::string last = preferences.string("morvane.transcriptionLastLocale").value_or("");
    int start = language_->findData(QString::fromStdString(last));
    if (start < 0) start = language_->findData(QString::fromUtf8(TranscriptionLocale::fallback.data()));
    language_->setCurrentIndex(std::max(start, 0));

    mode_->addItem(QStringLiteral("Ask me every time"),
                   static_cast<int>(TranscriptionPromptMode::askEveryTime));
    mode_->addItem(QStringLiteral("Use the language I chose last"),
                   static_cast<int>(TranscriptionPromptMode::lastSelected));
    mode_->addItem(QStringLiteral("Always use this language"),
                   static_cast<int>(TranscriptionPromptMode::always));
    mode_->setCurrentIndex(mode_->findData(static_cast<int>(TranscriptionLocale::promptMode(preferences))));

    auto* form = new QFormLayout();
    form->addRow(QStringLiteral("Language"), language_);
    form->addRow(QStringLiteral("Next time"), mode_);
    layout->addLayout(form);

    auto* buttons = new QDialogButtonBox(this);
    QPushButton* transcribe = buttons->addButton(QStringLiteral("Transcribe"), QDialogButtonBox::AcceptRole);
    buttons->addButton(QStringLiteral("Skip"), QDialogButtonBox::RejectRole);
    transcribe->setDefault(true);
    layout->addWidget(buttons);
    QObject::connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
}

std::string TranscriptionLanguageDialog::chosenLocale() const {
    return language_->currentData().toString().toStdString();
}

TranscriptionPromptMode TranscriptionLanguageDialog::chosenMode() const {
    return static_cast<TranscriptionPromptMode>(mode_->currentData().toInt());
}

void TranscriptionLanguageDialog::accept() {
    try {
        TranscriptionLocale::remember(preferences_, chosenLocale(), chosenMode());
    } catch (const std::filesystem::filesystem_error& error) {
        // The transcription goes ahead in the chosen language; only next time's default is lost.
        std::cerr << "morvane-studio: could not save the language choice: " << error.what() << "\n";
    }
    QDialog::accept();
}

}  // namespace morvane::studio
