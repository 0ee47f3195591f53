// People and faces by OpenCV's Haar cascades; salient regions by the spectral residual of the picture's
// log amplitude spectrum (Hou and Zhang, 2007): a smooth spectrum is what any natural picture has, and what
// stands out of it is what the eye goes to.

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/objdetect.hpp>

#include <algorithm>

#include "morvane/intelligence/publish/auto_reframe_analyzer.hpp"

namespace morvane::intelligence {
namespace {

// Cascades run on a copy whose longer side is at most this: talking heads and people fill a good part of
// the frame, and a cascade's cost grows with the pixel count.
constexpr int kDetectionSide = 640;
// The smallest face or body looked for, as a share of the shorter side.
constexpr double kMinimumSubjectShare = 0.08;
// Overlapping hits of one cascade that make a detection, and the count that makes it certain.
constexpr int kFaceNeighbours = 4;
constexpr int kPersonNeighbours = 2;
constexpr double kCertainNeighbours = 10.0;
// The saliency map's width: the spectral residual works on a small picture, where the smooth part of the
// spectrum is what a 3x3 average of it gives.
constexpr int kSaliencyWidth = 64;
// A picture whose grey levels spread less than this (of 255) is flat: nothing in it stands out.
constexpr double kFlatStandardDeviation = 2.0;
// Below this share of the mean level (the spectrum's first term) a frequency counts as empty.
constexpr double kSilentFrequencyShare = 1e-4;
// A pixel is salient at this many times the map's mean.
constexpr double kSalientOverMean = 3.0;

cv::Mat grayOf(const engine::RGBAImage& image) {
    const cv::Mat rgba(image.height, image.width, CV_8UC4, const_cast<std::uint8_t*>(image.pixels.data()));
    cv::Mat gray;
    cv::cvtColor(rgba, gray, cv::COLOR_RGBA2GRAY);
    return gray;
}

std::vector<SubjectDetection> run(cv::CascadeClassifier& cascade, const cv::Mat& gray, int neighbours) {
    if (cascade.empty()) return {};
    std::vector<cv::Rect> rects;
    std::vector<int> counts;
    const int minimum = static_cast<int>(std::min(gray.cols, gray.rows) * kMinimumSubjectShare);
    cascade.detectMultiScale(gray, rects, counts, 1.1, neighbours, 0, cv::Size(minimum, minimum));
    std::vector<SubjectDetection> found;
    for (std::size_t i = 0; i < rects.size(); ++i) {
        const cv::Rect& r = rects[i];
        found.push_back(
            {.boundingBox = {static_cast<double>(r.x) / gray.cols, static_cast<double>(r.y) / gray.rows,
                             static_cast<double>(r.width) / gray.cols,
                             static_cast<double>(r.height) / gray.rows},
             .confidence = std::min(counts[i] / kCertainNeighbours, 1.0)});
    }
    return found;
}

// The cascade in `file`, or an empty one when it is missing or damaged.
cv::CascadeClassifier loaded(const std::filesystem::path& file) {
    cv::CascadeClassifier cascade;
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error)) return cascade;
    try {
        cascade.load(file.string());
    } catch (const cv::Exception&) {
    }
    return cascade;
}

}  // namespace

struct SubjectDetector::Cascades {
    cv::CascadeClassifier upperBody;
    cv::CascadeClassifier face;
};

SubjectDetector::SubjectDetector(const std::filesystem::path& cascadeFolder)
    : cascades_(std::make_unique<Cascades>()) {
    cascades_->upperBody = loaded(cascadeFolder / "haarcascade_upperbody.xml");
    cascades_->face = loaded(cascadeFolder / "haarcascade_frontalface_default.xml");
}

SubjectDetector::~SubjectDetector() = default;

std::filesystem::path SubjectDetector::defaultCascadeFolder() {
    return MORVANE_HAAR_CASCADE_DIR;
}

bool SubjectDetector::hasCascades() const noexcept {
    return !cascades_->upperBody.empty() && !cascades_->face.empty();
}

FrameDetections SubjectDetector::detect(const engine::RGBAImage& image) {
    if (image.empty()) return {};
    const cv::Mat gray = grayOf(image);
    cv::Mat small;
    const double scale = std::min(1.0, static_cast<double>(kDetectionSide) / std::max(gray.cols, gray.rows));
    cv::resize(gray, small, cv::Size(), scale, scale, cv::INTER_AREA);
    cv::equalizeHist(small, small);
    return {.people = run(cascades_->upperBody, small, kPersonNeighbours),
            .faces = run(cascades_->face, small, kFaceNeighbours),
            .salientObjects = salientObjects(image)};
}

std::vector<SubjectDetection> SubjectDetector::salientObjects(const engine::RGBAImage& image) {
    if (image.empty()) return {};
    const cv::Mat gray = grayOf(image);
    cv::Scalar mean;
    cv::Scalar deviation;
    cv::meanStdDev(gray, mean, deviation);
    if (deviation[0] < kFlatStandardDeviation) return {};

    const int height = std::max(1, kSaliencyWidth * gray.rows / std::max(gray.cols, 1));
    cv::Mat small;
    cv::resize(gray, small, cv::Size(kSaliencyWidth, height), 0, 0, cv::INTER_AREA);
    small.convertTo(small, CV_32F, 1.0 / 255.0);

    // Spectrum -> log amplitude and phase -> residual = log amplitude - its local average -> back.
    cv::Mat planes[] = {small, cv::Mat::zeros(small.size(), CV_32F)};
    cv::Mat spectrum;
    cv::merge(planes, 2, spectrum);
    cv::dft(spectrum, spectrum);
    cv::split(spectrum, planes);
    cv::Mat amplitude;
    cv::Mat phase;
    cv::cartToPolar(planes[0], planes[1], amplitude, phase);
    // Frequencies without energy have no phase worth keeping: rounding noise there would come back as
    // noise all over the map. They fade out below a small share of the mean level.
    const float floor = static_cast<float>(kSilentFrequencyShare * amplitude.at<float>(0, 0));
    cv::Mat logAmplitude;
    cv::log(amplitude + floor, logAmplitude);
    cv::Mat smooth;
    cv::blur(logAmplitude, smooth, cv::Size(3, 3), cv::Point(-1, -1), cv::BORDER_REPLICATE);
    cv::Mat residual;
    cv::exp(logAmplitude - smooth, residual);
    cv::Mat weight;
    cv::divide(amplitude, amplitude + floor, weight);
    residual = residual.mul(weight);
    cv::polarToCart(residual, phase, planes[0], planes[1]);
    cv::merge(planes, 2, spectrum);
    cv::idft(spectrum, spectrum, cv::DFT_SCALE);
    cv::split(spectrum, planes);
    cv::Mat saliency;
    cv::magnitude(planes[0], planes[1], saliency);
    saliency = saliency.mul(saliency);
    cv::GaussianBlur(saliency, saliency, cv::Size(0, 0), 2.5);

    const double total = cv::sum(saliency)[0];
    if (!(total > 0.0)) return {};
    cv::Mat mask = saliency > kSalientOverMean * total / static_cast<double>(saliency.total());
    cv::Mat labels;
    cv::Mat stats;
    cv::Mat centroids;
    const int count = cv::connectedComponentsWithStats(mask, labels, stats, centroids, 8, CV_32S);
    std::vector<double> sums(static_cast<std::size_t>(count), 0.0);
    for (int y = 0; y < labels.rows; ++y) {
        for (int x = 0; x < labels.cols; ++x)
            sums[labels.at<int>(y, x)] += saliency.at<float>(y, x);
    }
    std::vector<SubjectDetection> found;
    for (int label = 1; label < count; ++label) {  // 0 is the background
        const double w = saliency.cols;
        const double h = saliency.rows;
        found.push_back({.boundingBox = {stats.at<int>(label, cv::CC_STAT_LEFT) / w,
                                         stats.at<int>(label, cv::CC_STAT_TOP) / h,
                                         stats.at<int>(label, cv::CC_STAT_WIDTH) / w,
                                         stats.at<int>(label, cv::CC_STAT_HEIGHT) / h},
                         .confidence = sums[static_cast<std::size_t>(label)] / total});
    }
    std::sort(found.begin(), found.end(),
              [](const auto& a, const auto& b) { return a.confidence > b.confidence; });
    return found;
}

}  // namespace morvane::intelligence
