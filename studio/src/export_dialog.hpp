#pragma once

/// The export panel: the preset, the codec and its rate, with the summary of what comes out (size, length,
/// estimated file size and encode time) kept up to date as they change. Accepting it keeps the request;
/// the window then asks where to write the movie and runs it.
///
///     ExportDialog dialog(session, window);
///     if (dialog.exec() == QDialog::Accepted) run(dialog.request());

#include <QDialog>

#include "morvane/app/export/export_settings.hpp"

class QComboBox;
class QFormLayout;
class QLabel;
class QPushButton;

namespace morvane::app {
class ProjectSession;
}

namespace morvane::studio {

class ExportDialog final : public QDialog {
  public:
    /// Starts on the request the project suggests (`ExportRequest::defaultFor`).
    ExportDialog(const app::ProjectSession& session, QWidget* parent);

    /// The request as the user has set it.
    [[nodiscard]] const app::ExportRequest& request() const noexcept { return request_; }
    [[nodiscard]] QComboBox* presetBox() const noexcept { return preset_; }
    [[nodiscard]] QComboBox* codecBox() const noexcept { return codec_; }
    [[nodiscard]] QComboBox* bitrateBox() const noexcept { return bitrate_; }
    [[nodiscard]] QPushButton* exportButton() const noexcept { return export_; }
    [[nodiscard]] QLabel* noteLabel() const noexcept { return note_; }
    /// The summary's value for `label` ("Output", "Size"...); empty when there is no such row.
    [[nodiscard]] QString summaryValue(const QString& label) const;

  private:
    void changed();

    const app::ProjectSession& session_;
    app::ExportRequest request_;
    QComboBox* preset_;
    QComboBox* codec_;
    QComboBox* bitrate_;
    QFormLayout* summary_;
    QLabel* note_;
    QPushButton* export_;
};

}  // namespace morvane::studio
