// SPDX-License-Identifier: Apache-2.0
#include "stage/pictures.h"

#include <QColorSpace>
#include <QPainter>
#include <QRadialGradient>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <numbers>
#include <utility>

#include "support/fatal.h"
#include "vision/face_mesh.h"
#include "vision/inference.h"
#include "vision/network.h"

namespace sentrel::test {

namespace {

using vision::FaceMesh;
using vision::Vector3;

/// Of the face in the user's picture, which is always the same one.
FaceMesh readMesh(const QImage& picture, vision::Models& models) {
  constexpr vision::InputSize meshSize{vision::meshSide, vision::meshSide};
  const auto frame = toFrame(picture);
  const auto engine = vision::makeInferenceEngine();
  vision::MeshFinder finder(std::move(engine->prepare(models.mesh, std::array{meshSize}).front()),
                            models.face.points.size());
  FaceMesh mesh;
  vision::TurnedSquare place{285, 130, 220, 0};
  for (int i = 0; i < 3; ++i) {
    if (!finder.find(*frame, place, mesh)) fatal("no face was found in the portrait");
    place = vision::meshRegion(mesh);
  }
  return mesh;
}

/// The closed line around the mesh: the longest loop of edges that belong to one triangle only.
std::vector<std::size_t> outline(const vision::CanonicalFace& face) {
  std::map<std::pair<std::size_t, std::size_t>, int> uses;
  for (const auto& triangle : face.triangles) {
    for (std::size_t k = 0; k < 3; ++k) ++uses[{triangle[k], triangle[(k + 1) % 3]}];
  }
  std::map<std::size_t, std::size_t> next;
  for (const auto& [edge, count] : uses) {
    if (!uses.contains({edge.second, edge.first})) next[edge.first] = edge.second;
  }
  std::vector<std::size_t> longest;
  while (!next.empty()) {
    std::vector<std::size_t> loop;
    for (auto at = next.begin(); at != next.end(); at = next.find(loop.back())) {
      loop.push_back(at->second);
      next.erase(at);
    }
    if (loop.size() > longest.size()) longest = std::move(loop);
  }
  return longest;
}

double cross(const QPointF& a, const QPointF& b) {
  return a.x() * b.y() - a.y() * b.x();
}

QRgb bilinear(const QImage& picture, const QPointF& at) {
  const double x = std::clamp(at.x(), 0.0, picture.width() - 1.001);
  const double y = std::clamp(at.y(), 0.0, picture.height() - 1.001);
  const int left = static_cast<int>(x);
  const int top = static_cast<int>(y);
  const auto* upper = reinterpret_cast<const QRgb*>(picture.constScanLine(top)) + left;
  const auto* lower = reinterpret_cast<const QRgb*>(picture.constScanLine(top + 1)) + left;
  const auto channel = [&](int (*value)(QRgb)) {
    const auto row = [&](const QRgb* line) { return std::lerp(value(line[0]), value(line[1]), x - left); };
    return static_cast<int>(std::lround(std::lerp(row(upper), row(lower), y - top)));
  };
  return qRgb(channel(&qRed), channel(&qGreen), channel(&qBlue));
}

}  // namespace

QImage loadPicture(const QString& name) {
  const QString path = QStringLiteral(SENTREL_TEST_PICTURES "/") + name;
  QImage picture(path);
  if (picture.isNull()) fatal("cannot read " + path.toStdString() + ": run scripts/fetch-test-pictures");
  picture.setColorSpace(QColorSpace());  // or every copy that is written carries the file's wrong profile on
  return picture.convertToFormat(QImage::Format_RGB32);
}

std::shared_ptr<Frame> toFrame(const QImage& picture) {
  auto frame = std::make_shared<Frame>();
  // 32-bit RGB in memory is BGRA byte by byte on little-endian machines, the only ones this runs on.
  const QImage source = picture.convertToFormat(QImage::Format_RGB32);
  frame->resize(source.width(), source.height());
  std::copy_n(source.constBits(), source.sizeInBytes(), frame->data());  // of an empty one: nothing
  return frame;
}

QString modelFolderPath() {
  return QStringLiteral(SENTREL_TEST_MODELS);
}

PortraitScene::PortraitScene() {
  const QImage portrait = loadPicture(QStringLiteral("astronaut.png"));
  // Head and shoulders as a camera on the screen's edge sees them.
  user_ = portrait.scaledToWidth(width, Qt::SmoothTransformation)
              .copy(0, 0, width, height)
              .convertToFormat(QImage::Format_RGB32);
  try {
    vision::Models models = vision::readModels(modelFolderPath().toStdString());
    const FaceMesh mesh = readMesh(user_, models);
    const vision::Region box = vision::boundingBox(mesh);
    faceBox_ = QRectF(box.x, box.y, box.width, box.height);
    buildSurface(mesh.points, models.face);
  } catch (const vision::ModelError& error) {
    fatal(error.what());
  }
  onlooker_ = head(user_);
}

void PortraitScene::buildSurface(const std::vector<Vector3>& mesh, const vision::CanonicalFace& canonical) {
  const QPointF centre = faceBox_.center();
  double nearest = mesh.front().z;
  for (const Vector3& point : mesh) {
    surface_.push_back({point.x, point.y, point.z, 1});
    nearest = std::min(nearest, point.z);
  }
  for (const auto& triangle : canonical.triangles)
    triangles_.push_back({triangle[0], triangle[1], triangle[2]});
  // The neck's axis lies about half a head behind the face.
  axis_ = {centre.x(), centre.y(), nearest + 0.75 * faceBox_.width()};

  // Around the face: rings of hair and sides of the head, ever deeper and ever less turned, to the still
  // background.
  struct Ring {
    double spread, depth, turn;
  };
  constexpr Ring rings[] = {{1.18, 0.12, 1}, {1.38, 0.30, 0.85}, {1.62, 0.40, 0.45}, {2.1, 0.40, 0}};
  const std::vector<std::size_t> contour = outline(canonical);
  std::vector<std::size_t> inner = contour;
  for (const Ring& ring : rings) {
    std::vector<std::size_t> outer;
    for (const std::size_t at : contour) {
      const Vector3& point = mesh[at];
      outer.push_back(surface_.size());
      surface_.push_back({centre.x() + ring.spread * (point.x - centre.x()),
                          centre.y() + ring.spread * (point.y - centre.y()),
                          point.z + ring.depth * faceBox_.width(), ring.turn});
    }
    for (std::size_t i = 0; i < contour.size(); ++i) {
      const std::size_t k = (i + 1) % contour.size();
      triangles_.push_back({inner[i], outer[i], outer[k]});
      triangles_.push_back({inner[i], outer[k], inner[k]});
    }
    inner = std::move(outer);
  }
}

QImage PortraitScene::head(const QImage& picture) const {
  // Cut out along a soft oval.
  const QRectF part = faceBox_.adjusted(-0.38 * faceBox_.width(), -0.55 * faceBox_.height(),
                                        0.38 * faceBox_.width(), 0.30 * faceBox_.height());
  QImage cut = picture.copy(part.toRect()).convertToFormat(QImage::Format_ARGB32_Premultiplied);
  QRadialGradient oval(1, 1, 1);
  oval.setColorAt(0.86, Qt::white);
  oval.setColorAt(1, Qt::transparent);
  QPainter painter(&cut);
  painter.scale(cut.width() / 2.0, cut.height() / 2.0);
  painter.setCompositionMode(QPainter::CompositionMode_DestinationIn);
  painter.fillRect(QRectF(0, 0, 2, 2), oval);
  painter.end();
  return cut.mirrored(true, false);
}

QImage PortraitScene::turned(double yawDegrees) const {
  QImage result = user_;
  if (yawDegrees == 0) return result;
  const double angle = yawDegrees * std::numbers::pi / 180;
  std::vector<Vertex> moved = surface_;
  for (Vertex& vertex : moved) {
    const double x = vertex.x - axis_.x;
    const double z = vertex.z - axis_.z;
    // z counts away from the viewer, so a turn to the image's right moves what is near to the right.
    const double turn = angle * vertex.turn;
    vertex.x = axis_.x + x * std::cos(turn) - z * std::sin(turn);
    vertex.z = axis_.z + x * std::sin(turn) + z * std::cos(turn);
  }
  std::vector<double> depth(static_cast<std::size_t>(width * height), 1e9);
  for (const auto& triangle : triangles_) {
    QPointF to[3];
    QPointF from[3];
    double z[3];
    for (std::size_t k = 0; k < 3; ++k) {
      const Vertex& vertex = moved[triangle[k]];
      to[k] = {vertex.x, vertex.y};
      from[k] = {surface_[triangle[k]].x, surface_[triangle[k]].y};
      z[k] = vertex.z;
    }
    const double area = cross(to[1] - to[0], to[2] - to[0]);
    if (std::abs(area) < 1e-6) continue;
    const auto [x0, x1] = std::minmax({to[0].x(), to[1].x(), to[2].x()});
    const auto [y0, y1] = std::minmax({to[0].y(), to[1].y(), to[2].y()});
    for (int y = std::max(0, static_cast<int>(std::ceil(y0)));
         y <= std::min(height - 1, static_cast<int>(y1)); ++y) {
      for (int x = std::max(0, static_cast<int>(std::ceil(x0)));
           x <= std::min(width - 1, static_cast<int>(x1)); ++x) {
        const QPointF at(x, y);
        const double b = cross(at - to[0], to[2] - to[0]) / area;
        const double c = cross(to[1] - to[0], at - to[0]) / area;
        const double a = 1 - b - c;
        constexpr double edge = -1e-9;
        if (a < edge || b < edge || c < edge) continue;
        double& nearest = depth[static_cast<std::size_t>(y * width + x)];
        const double here = a * z[0] + b * z[1] + c * z[2];
        if (here >= nearest) continue;
        nearest = here;
        const QPointF source = a * from[0] + b * from[1] + c * from[2];
        result.setPixel(x, y, bilinear(user_, source));
      }
    }
  }
  return result;
}

QImage PortraitScene::frame(const SceneState& state) const {
  QImage result = turned(state.yawDegrees);
  if (!state.secondFace) return result;
  const double scale = state.secondFace->width / faceBox_.width();
  const QImage onlooker =
      state.secondFace->yawDegrees == 0 ? onlooker_ : head(turned(state.secondFace->yawDegrees));
  const QImage small = onlooker.scaled(std::max(1, static_cast<int>(std::lround(onlooker.width() * scale))),
                                       std::max(1, static_cast<int>(std::lround(onlooker.height() * scale))),
                                       Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
  QPainter painter(&result);
  // The face's centre lies below the middle of the head.
  const double above = (0.55 - 0.30) / 2 * faceBox_.height() * scale;
  painter.drawImage(
      QPointF(state.secondFace->x - small.width() / 2.0, state.secondFace->y - above - small.height() / 2.0),
      small);
  return result;
}

QImage PortraitScene::backlit() const {
  constexpr double beside = 0.2;
  constexpr double above = 0.4;
  const QRectF head =
      faceBox_.adjusted(-faceBox_.width() * beside, -faceBox_.height() * above, faceBox_.width() * beside, 0);
  QImage picture = frame({});
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const QRgb lit = picture.pixel(x, y);
      const bool isUser = head.contains(x, y) || y > faceBox_.bottom();
      picture.setPixel(x, y,
                       isUser ? qRgb(qRed(lit) / 3, qGreen(lit) / 3, qBlue(lit) / 3) : qRgb(245, 245, 250));
    }
  }
  return picture;
}

QImage PortraitScene::faceless(const std::function<int(int x, int y)>& brightness) {
  QImage picture(width, height, QImage::Format_RGB32);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const int value = brightness(x, y);
      picture.setPixel(x, y, qRgb(value, value, value));
    }
  }
  return picture;
}

}  // namespace sentrel::test
