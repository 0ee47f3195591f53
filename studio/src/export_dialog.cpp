#include "export_dialog.hpp"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>
#include <array>

#include "morvane/app/session/project_session.hpp"

namespace morvane::studio {

namespace {

QString qtext(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

template <typename Enum, std::size_t N>
void fill(QComboBox* box, const std::array<Enum, N>& values, Enum current) {
    for (const Enum value : values)
        box->addItem(qtext(engine::label(value)), static_cast<int>(value));
    box->setCurrentIndex(box->findData(static_cast<int>(current)));
}

}  // namespace

ExportDialog::ExportDialog(const app::ProjectSession& session, QWidget* parent)
    : QDialog(parent),
      session_(session),
      request_(app::ExportRequest::defaultFor(session)),
      preset_(new QComboBox(this)),
      codec_(new QComboBox(this)),
      bitrate_(new QComboBox(this)),
      summary_(new QFormLayout),
      note_(new QLabel(this)),
      export_(new QPushButton(this)) {
    setWindowTitle(QStringLiteral("Export"));
    for (const auto& preset : engine::ExportPreset::all())
        preset_->addItem(qtext(preset.label), qtext(preset.id));
    preset_->setCurrentIndex(preset_->findData(qtext(request_.preset.id)));
    using engine::ExportVideoBitrate;
    using engine::ExportVideoCodec;
    fill(codec_,
         std::array{ExportVideoCodec::h264, ExportVideoCodec::hevc, ExportVideoCodec::proRes422,
                    ExportVideoCodec::gif},
         request_.videoSettings.codec);
    fill(bitrate_,
         std::array{ExportVideoBitrate::automatic, ExportVideoBitrate::low, ExportVideoBitrate::medium,
                    ExportVideoBitrate::high, ExportVideoBitrate::max},
         request_.videoSettings.bitrate);

    auto* choices = new QFormLayout;
    choices->addRow(QStringLiteral("Preset"), preset_);
    choices->addRow(QStringLiteral("Codec"), codec_);
    choices->addRow(QStringLiteral("Quality"), bitrate_);
    note_->setWordWrap(true);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, this);
    export_->setDefault(true);
    buttons->addButton(export_, QDialogButtonBox::AcceptRole);
    QObject::connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(choices);
    layout->addLayout(summary_);
    layout->addWidget(note_);
    layout->addWidget(buttons);

    for (QComboBox* box : {preset_, codec_, bitrate_})
        QObject::connect(box, &QComboBox::currentIndexChanged, this, [this] { changed(); });
    changed();
}

void ExportDialog::changed() {
    if (const auto* preset = engine::ExportPreset::preset(preset_->currentData().toString().toStdString()))
        request_.preset = *preset;
    request_.videoSettings.codec = static_cast<engine::ExportVideoCodec>(codec_->currentData().toInt());
    request_.videoSettings.bitrate = static_cast<engine::ExportVideoBitrate>(bitrate_->currentData().toInt());

    const app::ExportPanelSummary summary = app::ExportSettings::panelSummary(session_, request_);
    while (summary_->rowCount() > 0)
        summary_->removeRow(0);
    for (const auto& row : summary.rows)
        summary_->addRow(qtext(row.label), new QLabel(qtext(row.value), this));
    note_->setText(qtext(summary.note.value_or("")));
    note_->setVisible(summary.note.has_value());
    export_->setText(qtext(summary.actionTitle));
}

QString ExportDialog::summaryValue(const QString& label) const {
    for (int row = 0; row < summary_->rowCount(); ++row) {
        auto* name = qobject_cast<QLabel*>(summary_->itemAt(row, QFormLayout::LabelRole)->widget());
        auto* value = qobject_cast<QLabel*>(summary_->itemAt(row, QFormLayout::FieldRole)->widget());
        if (name && value && name->text() == label) return value->text();
    }
    return {};
}

}  // namespace morvane::studio
