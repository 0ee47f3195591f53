#pragma once

/// The question asked before a recording is transcribed: which language is spoken in it, and whether to
/// ask again next time. The answer is remembered in the preferences as the user chose; skipping leaves
/// them alone.
///
///     TranscriptionLanguageDialog dialog("talk.mp4", locales, preferences, window);
///     if (dialog.exec() == QDialog::Accepted) transcribe(dialog.chosenLocale());

#include <QDialog>
#include <string>
#include <vector>

#include "morvane/intelligence/transcription/transcription_provider.hpp"

class QComboBox;

namespace morvane {
class PreferencesStore;
}

namespace morvane::studio {

class TranscriptionLanguageDialog final : public QDialog {
  public:
    /// Offers `locales` (in their order) for `fileLabel`, starting on the language chosen last (or the
    /// fallback) and on the stored prompt mode.
    TranscriptionLanguageDialog(const std::string& fileLabel, const std::vector<std::string>& locales,
                                PreferencesStore& preferences, QWidget* parent);

    /// The language selected now.
    [[nodiscard]] std::string chosenLocale() const;
    [[nodiscard]] intelligence::TranscriptionPromptMode chosenMode() const;
    [[nodiscard]] QComboBox* languageBox() const noexcept { return language_; }
    [[nodiscard]] QComboBox* modeBox() const noexcept { return mode_; }

    /// Accepts: remembers the language and the mode, then closes.
    void accept() override;

  private:
    PreferencesStore& preferences_;
    QComboBox* language_;
    QComboBox* mode_;
};

}  // namespace morvane::studio
