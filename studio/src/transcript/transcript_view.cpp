#include "transcript/transcript_view.hpp"

#include <QHelpEvent>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QScrollBar>
#include <QToolTip>
#include <algorithm>

#include "morvane/app/session/project_session.hpp"
#include "morvane/app/timeline/transcript_cut.hpp"

namespace morvane::studio {

namespace {

const QColor kKeepColor(64, 170, 96);
const QColor kDropColor(208, 72, 64);
const QColor kReviewColor(224, 160, 40);

QColor markColor(SegmentMark mark) {
    switch (mark) {
        case SegmentMark::keep:
            return kKeepColor;
        case SegmentMark::drop:
            return kDropColor;
        case SegmentMark::review:
            return kReviewColor;
        case SegmentMark::none:
            break;
    }
    return {};
}

}  // namespace

TranscriptView::TranscriptView(QWidget* parent) : QAbstractScrollArea(parent) {
    setFocusPolicy(Qt::StrongFocus);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    viewport()->setMouseTracking(false);
    viewport()->setCursor(Qt::IBeamCursor);
    QFont text = font();
    text.setPointSizeF(text.pointSizeF() * 1.15);
    setFont(text);
}

void TranscriptView::sync(const app::ProjectSession& session) {
    // The playhead moves the session several times a second: the words are compared in place and copied
    // only when they changed.
    static const std::vector<intelligence::TranscriptWord> none;
    const auto& source = session.transcript ? session.transcript->words : none;
    const bool sameWords = std::equal(
        source.begin(), source.end(), words_.begin(), words_.end(), [](const auto& a, const auto& b) {
            return a.id == b.id && a.text == b.text && a.start.seconds() == b.startSeconds &&
                   a.end.seconds() == b.endSeconds;
        });
    std::vector<TranscriptViewWord> words;
    if (!sameWords) {
        words.reserve(source.size());
        for (const auto& w : source)
            words.push_back({w.id, w.text, w.start.seconds(), w.end.seconds()});
    }
    const std::vector<TranscriptViewWord>& current = sameWords ? words_ : words;

    // Paragraphs: one per segment, marked by the cut list once the assistant has decided.
    std::vector<Paragraph> paragraphs;
    if (session.segments && !current.empty()) {
        std::map<int, const app::CutItem*> items;
        for (const auto& item : session.cutItems)
            items[item.segmentID] = &item;
        std::size_t cursor = 0;
        for (const auto& segment : session.segments->segments) {
            while (cursor < current.size() && current[cursor].id < segment.wordStartID)
                ++cursor;
            if (cursor >= current.size()) break;
            Paragraph p{cursor, SegmentMark::none, {}};
            const auto item = items.find(segment.id);
            if (session.classification && item != items.end()) {
                const bool review = item->second->reason == std::optional<std::string>("needs_review");
                p.mark = review ? SegmentMark::review
                                : (item->second->accepted ? SegmentMark::keep : SegmentMark::drop);
                p.reason = item->second->reason.value_or("");
            }
            if (!paragraphs.empty() && paragraphs.back().firstWord == cursor) {
                paragraphs.back() = p;
            } else {
                paragraphs.push_back(p);
            }
        }
    }
    const bool sameParagraphs =
        paragraphs.size() == paragraphs_.size() &&
        std::equal(paragraphs.begin(), paragraphs.end(), paragraphs_.begin(),
                   [](const auto& a, const auto& b) {
                       return a.firstWord == b.firstWord && a.mark == b.mark && a.reason == b.reason;
                   });
    const bool sameBreaks =
        sameParagraphs ||
        (paragraphs.size() == paragraphs_.size() &&
         std::equal(paragraphs.begin(), paragraphs.end(), paragraphs_.begin(),
                    [](const auto& a, const auto& b) { return a.firstWord == b.firstWord; }));

    std::set<int> struck = app::TranscriptCutMaterializer::displayRemovedWordIDs(session);
    std::optional<std::size_t> playing;
    if (session.playheadSeconds) playing = wordPlayingAt(current, *session.playheadSeconds);

    if (!session.mediaURL && current.empty()) {
        emptyText_ = "Drop a recording on the preview: its transcript appears here.";
    } else if (current.empty()) {
        emptyText_ = "No transcript yet.";
    } else {
        emptyText_.clear();
    }

    const bool changed = !sameWords || !sameParagraphs || struck != struck_ || playing != playing_;
    if (!sameWords) {
        words_ = std::move(words);
        anchor_.reset();
        selectionFirst_.reset();
        selectionLast_.reset();
    }
    paragraphs_ = std::move(paragraphs);
    struck_ = std::move(struck);
    const bool follow = playing && playing != playing_;
    playing_ = playing;
    if (!sameWords || !sameBreaks) relayout();
    if (follow) ensureVisible(*playing_);
    if (changed || words_.empty()) viewport()->update();
}

void TranscriptView::relayout() {
    std::set<std::size_t> starts;
    for (const auto& p : paragraphs_)
        starts.insert(p.firstWord);
    const QFontMetrics metrics(font());
    TranscriptLayoutMetrics m;
    m.lineHeight = metrics.height() + 6;
    m.wordSpacing = metrics.horizontalAdvance(QLatin1Char(' ')) + 2;
    layout_ = TranscriptLayout::build(
        words_, starts, viewport()->width(),
        [&](const std::string& text) { return metrics.horizontalAdvance(QString::fromStdString(text)) + 4; },
        m);
    laidOutWidth_ = viewport()->width();
    updateScrollBar();
}

void TranscriptView::updateScrollBar() {
    verticalScrollBar()->setRange(0, std::max(layout_.height() - viewport()->height(), 0));
    verticalScrollBar()->setPageStep(viewport()->height());
    verticalScrollBar()->setSingleStep(20);
}

void TranscriptView::resizeEvent(QResizeEvent* event) {
    QAbstractScrollArea::resizeEvent(event);
    if (viewport()->width() != laidOutWidth_) relayout();
    updateScrollBar();
}

void TranscriptView::ensureVisible(std::size_t index) {
    if (index >= layout_.words().size()) return;
    const QRect box = layout_.words()[index].box;
    const int top = verticalScrollBar()->value();
    const int bottom = top + viewport()->height();
    if (box.top() < top || box.bottom() > bottom) {
        verticalScrollBar()->setValue(std::max(box.top() - viewport()->height() / 3, 0));
    }
}

void TranscriptView::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(viewport());
    const QPalette& pal = palette();
    painter.fillRect(viewport()->rect(), pal.base());
    if (words_.empty()) {
        painter.setPen(pal.color(QPalette::PlaceholderText));
        painter.drawText(viewport()->rect().adjusted(16, 16, -16, -16),
                         Qt::AlignHCenter | Qt::AlignTop | Qt::TextWordWrap,
                         QString::fromStdString(emptyText_));
        return;
    }
    const int scroll = verticalScrollBar()->value();
    painter.translate(0, -scroll);
    const int visibleTop = scroll;
    const int visibleBottom = scroll + viewport()->height();

    const auto& placedParagraphs = layout_.paragraphs();
    for (std::size_t i = 0; i < placedParagraphs.size() && i < paragraphs_.size(); ++i) {
        const SegmentMark mark = paragraphs_[i].mark;
        if (mark == SegmentMark::none) continue;
        const auto& p = placedParagraphs[i];
        if (p.bottom < visibleTop || p.top > visibleBottom) continue;
        painter.fillRect(QRect(3, p.top + 2, 4, p.bottom - p.top - 4), markColor(mark));
    }

    QFont plain = font();
    QFont struckFont = font();
    struckFont.setStrikeOut(true);
    const bool hasSelection = selectionFirst_ && selectionLast_;
    const std::size_t selFirst = hasSelection ? std::min(*selectionFirst_, *selectionLast_) : 0;
    const std::size_t selLast = hasSelection ? std::max(*selectionFirst_, *selectionLast_) : 0;
    for (const auto& placed : layout_.words()) {
        if (placed.box.bottom() < visibleTop) continue;
        if (placed.box.top() > visibleBottom) break;
        const auto& word = words_[placed.index];
        const bool struck = struck_.contains(word.id);
        const bool selected = hasSelection && placed.index >= selFirst && placed.index <= selLast;
        const QRect box = placed.box.adjusted(-2, 1, 2, -1);
        if (selected) {
            painter.fillRect(box, pal.color(QPalette::Highlight));
        } else if (playing_ == placed.index) {
            painter.fillRect(box, QColor(255, 214, 90));
        }
        QColor ink = selected ? pal.color(QPalette::HighlightedText) : pal.color(QPalette::Text);
        if (struck && !selected) ink = pal.color(QPalette::PlaceholderText);
        if (playing_ == placed.index && !selected) ink = Qt::black;
        painter.setPen(ink);
        painter.setFont(struck ? struckFont : plain);
        painter.drawText(placed.box, Qt::AlignCenter, QString::fromStdString(word.text));
    }
}

std::optional<std::size_t> TranscriptView::indexAt(QPoint viewportPoint, bool nearest) const {
    const QPoint point = viewportPoint + QPoint(0, verticalScrollBar()->value());
    return nearest ? layout_.nearestWord(point) : layout_.wordAt(point);
}

std::optional<std::size_t> TranscriptView::indexOf(int wordID) const {
    const auto it = std::lower_bound(words_.begin(), words_.end(), wordID,
                                     [](const TranscriptViewWord& w, int id) { return w.id < id; });
    if (it == words_.end() || it->id != wordID) return std::nullopt;
    return static_cast<std::size_t>(it - words_.begin());
}

void TranscriptView::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) return;
    setFocus(Qt::MouseFocusReason);
    const auto index = indexAt(event->position().toPoint(), false);
    dragged_ = false;
    if (!index) {
        selectionFirst_.reset();
        selectionLast_.reset();
        anchor_.reset();
        viewport()->update();
        return;
    }
    if ((event->modifiers() & Qt::ShiftModifier) && anchor_) {
        selectionFirst_ = anchor_;
        selectionLast_ = index;
        dragged_ = true;  // an extended selection isn't a click to seek
    } else {
        anchor_ = index;
        selectionFirst_ = index;
        selectionLast_ = index;
    }
    viewport()->update();
}

void TranscriptView::mouseMoveEvent(QMouseEvent* event) {
    if (!(event->buttons() & Qt::LeftButton) || !anchor_) return;
    const auto index = indexAt(event->position().toPoint(), true);
    if (!index) return;
    if (index != selectionLast_) dragged_ = true;
    selectionFirst_ = anchor_;
    selectionLast_ = index;
    viewport()->update();
}

void TranscriptView::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) return;
    if (!dragged_ && selectionFirst_ && onSeek) onSeek(words_[*selectionFirst_].startSeconds);
}

void TranscriptView::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Delete || event->key() == Qt::Key_Backspace) {
        strikeSelection();
        return;
    }
    if (event->matches(QKeySequence::SelectAll) && !words_.empty()) {
        anchor_ = 0;
        selectionFirst_ = 0;
        selectionLast_ = words_.size() - 1;
        viewport()->update();
        return;
    }
    if (event->key() == Qt::Key_Escape) {
        selectionFirst_.reset();
        selectionLast_.reset();
        viewport()->update();
        return;
    }
    QAbstractScrollArea::keyPressEvent(event);
}

bool TranscriptView::viewportEvent(QEvent* event) {
    if (event->type() == QEvent::ToolTip) {
        const auto* help = static_cast<QHelpEvent*>(event);
        const int y = help->pos().y() + verticalScrollBar()->value();
        const auto& placed = layout_.paragraphs();
        QString tip;
        for (std::size_t i = 0; i < placed.size() && i < paragraphs_.size(); ++i) {
            if (y < placed[i].top || y >= placed[i].bottom || paragraphs_[i].mark == SegmentMark::none)
                continue;
            const char* what = paragraphs_[i].mark == SegmentMark::keep   ? "Kept"
                               : paragraphs_[i].mark == SegmentMark::drop ? "Cut"
                                                                          : "Kept for you to look at";
            tip = QString::fromUtf8(what);
            if (!paragraphs_[i].reason.empty())
                tip += QStringLiteral(": ") + QString::fromStdString(paragraphs_[i].reason);
        }
        if (tip.isEmpty()) {
            QToolTip::hideText();
        } else {
            QToolTip::showText(help->globalPos(), tip, viewport());
        }
        return true;
    }
    return QAbstractScrollArea::viewportEvent(event);
}

std::set<int> TranscriptView::selectedWordIDs() const {
    std::set<int> ids;
    if (!selectionFirst_ || !selectionLast_) return ids;
    const std::size_t first = std::min(*selectionFirst_, *selectionLast_);
    const std::size_t last = std::max(*selectionFirst_, *selectionLast_);
    for (std::size_t i = first; i <= last && i < words_.size(); ++i)
        ids.insert(words_[i].id);
    return ids;
}

void TranscriptView::selectWords(int firstID, int lastID) {
    const auto first = indexOf(firstID);
    const auto last = indexOf(lastID);
    if (!first || !last) return;
    anchor_ = first;
    selectionFirst_ = first;
    selectionLast_ = last;
    viewport()->update();
}

void TranscriptView::strikeSelection() {
    const std::set<int> ids = selectedWordIDs();
    if (ids.empty() || !onStrike) return;
    const bool allStruck = std::all_of(ids.begin(), ids.end(), [&](int id) { return struck_.contains(id); });
    onStrike(ids, !allStruck);
}

QRect TranscriptView::wordBox(int wordID) {
    const auto index = indexOf(wordID);
    if (!index || *index >= layout_.words().size()) return {};
    ensureVisible(*index);
    return layout_.words()[*index].box.translated(0, -verticalScrollBar()->value());
}

std::optional<int> TranscriptView::playingWordID() const {
    if (!playing_) return std::nullopt;
    return words_[*playing_].id;
}

SegmentMark TranscriptView::markOfParagraph(std::size_t paragraph) const {
    return paragraph < paragraphs_.size() ? paragraphs_[paragraph].mark : SegmentMark::none;
}

}  // namespace morvane::studio
