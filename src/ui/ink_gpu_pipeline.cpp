#include "ui/ink_gpu_pipeline.h"

#include <QOpenGLContext>
#include <QOpenGLExtraFunctions>

#include <atomic>
#include <cmath>
#include <map>
#include <memory>
#include <mutex>

#include "core/base/log.h"
#include "ui/ink_shader_source.h"

namespace zorvane {

namespace {

constexpr int kTextureWidth = 1024;

// Pipelines by context; a null entry remembers a context whose program failed.
struct Registry {
  std::mutex mutex;
  std::map<QOpenGLContext*, std::unique_ptr<InkGpuPipeline>> pipelines;
  std::optional<std::string> fragmentOverride;
  bool failureLogged = false;
  std::string lastFailure;
};

Registry& registry() {
  static Registry* instance = new Registry;  // outlives every context, never destroyed
  return *instance;
}

std::string shaderLog(QOpenGLExtraFunctions* f, GLuint shader) {
  GLint length = 0;
  f->glGetShaderiv(shader, GL_INFO_LOG_LENGTH, &length);
  std::string text(size_t(std::max(length, 1)), '\0');
  f->glGetShaderInfoLog(shader, GLsizei(text.size()), nullptr, text.data());
  text.resize(text.find('\0') == std::string::npos ? text.size() : text.find('\0'));
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
  return text.empty() ? "no message from the compiler" : text;
}

std::string programLog(QOpenGLExtraFunctions* f, GLuint program) {
  GLint length = 0;
  f->glGetProgramiv(program, GL_INFO_LOG_LENGTH, &length);
  std::string text(size_t(std::max(length, 1)), '\0');
  f->glGetProgramInfoLog(program, GLsizei(text.size()), nullptr, text.data());
  text.resize(text.find('\0') == std::string::npos ? text.size() : text.find('\0'));
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
  return text.empty() ? "no message from the linker" : text;
}

// Compiles one stage; on failure returns 0 and sets `error`.
GLuint compile(QOpenGLExtraFunctions* f, GLenum stage, const std::string& source, std::string& error) {
  GLuint shader = f->glCreateShader(stage);
  const char* text = source.c_str();
  f->glShaderSource(shader, 1, &text, nullptr);
  f->glCompileShader(shader);
  GLint ok = GL_FALSE;
  f->glGetShaderiv(shader, GL_COMPILE_STATUS, &ok);
  if (ok == GL_TRUE) return shader;
  error = std::string(stage == GL_VERTEX_SHADER ? "vertex" : "fragment") + " stage: " + shaderLog(f, shader);
  f->glDeleteShader(shader);
  return 0;
}

}  // namespace

std::optional<InkDeviceRect> InkTarget::toFramebuffer(const InkDeviceRect& inView) const {
  int x0 = int(std::floor(viewX)) + inView.x;
  int y0 = rowsDown ? int(std::floor(viewTop)) + inView.y : int(std::ceil(viewTop)) - (inView.y + inView.height);
  int x1 = std::min(x0 + inView.width, width), y1 = std::min(y0 + inView.height, height);
  x0 = std::max(x0, 0);
  y0 = std::max(y0, 0);
  if (x1 <= x0 || y1 <= y0) return std::nullopt;
  return InkDeviceRect{x0, y0, x1 - x0, y1 - y0};
}

InkGpuPipeline::InkGpuPipeline(QOpenGLContext* context) : context_(context) {
  prims_ = {0, 0, GL_RGBA32F, GL_RGBA, GL_FLOAT};
  ranges_ = {0, 0, GL_RG32UI, GL_RG_INTEGER, GL_UNSIGNED_INT};
  indices_ = {0, 0, GL_R32UI, GL_RED_INTEGER, GL_UNSIGNED_INT};
}

InkGpuPipeline::~InkGpuPipeline() {
  // GL names belong to the context; they can only be deleted while it is current.
  if (QOpenGLContext::currentContext() == context_) release();
}

InkGpuPipeline* InkGpuPipeline::forCurrentContext() {
  QOpenGLContext* context = QOpenGLContext::currentContext();
  if (!context) return nullptr;
  Registry& reg = registry();
  std::unique_lock lock(reg.mutex);
  auto found = reg.pipelines.find(context);
  if (found != reg.pipelines.end()) return found->second.get();

  std::unique_ptr<InkGpuPipeline> pipeline(new InkGpuPipeline(context));
  if (std::optional<std::string> error = pipeline->build()) {
    pipeline->release();
    pipeline.reset();
    reg.lastFailure = *error;
    if (!reg.failureLogged) {
      reg.failureLogged = true;
      Log::info("ink shader failed: " + *error);
    }
  }
  InkGpuPipeline* result = pipeline.get();
  reg.pipelines.emplace(context, std::move(pipeline));
  // Direct connection: the signal comes while the native context still exists, on the
  // thread that destroys it.
  QObject::connect(context, &QOpenGLContext::aboutToBeDestroyed, [context] {
    Registry& r = registry();
    std::unique_ptr<InkGpuPipeline> gone;
    {
      std::lock_guard inner(r.mutex);
      auto it = r.pipelines.find(context);
      if (it == r.pipelines.end()) return;
      gone = std::move(it->second);
      r.pipelines.erase(it);
    }
  });
  return result;
}

std::string InkGpuPipeline::lastFailure() {
  Registry& reg = registry();
  std::lock_guard lock(reg.mutex);
  return reg.lastFailure;
}

void InkGpuPipeline::setFragmentSourceForTesting(std::optional<std::string> source) {
  Registry& reg = registry();
  std::lock_guard lock(reg.mutex);
  reg.fragmentOverride = std::move(source);
  reg.failureLogged = false;
}

std::optional<std::string> InkGpuPipeline::build() {
  QOpenGLExtraFunctions* f = context_->extraFunctions();
  auto dialect = context_->isOpenGLES() ? InkShaderSource::Dialect::gles300 : InkShaderSource::Dialect::desktop330;
  if (!context_->isOpenGLES() && context_->format().version() < qMakePair(3, 3))
    return "OpenGL 3.3 or later is needed, the context has " + std::to_string(context_->format().majorVersion()) +
           "." + std::to_string(context_->format().minorVersion());
  if (context_->isOpenGLES() && context_->format().majorVersion() < 3)
    return "OpenGL ES 3.0 or later is needed, the context has " +
           std::to_string(context_->format().majorVersion()) + "." +
           std::to_string(context_->format().minorVersion());

  std::string fragmentSource = registry().fragmentOverride.value_or(InkShaderSource::fragment(dialect));
  std::string error;
  GLuint vertex = compile(f, GL_VERTEX_SHADER, InkShaderSource::vertex(dialect), error);
  if (!vertex) return error;
  GLuint fragment = compile(f, GL_FRAGMENT_SHADER, fragmentSource, error);
  if (!fragment) {
    f->glDeleteShader(vertex);
    return error;
  }
  program_ = f->glCreateProgram();
  f->glAttachShader(program_, vertex);
  f->glAttachShader(program_, fragment);
  f->glLinkProgram(program_);
  f->glDeleteShader(vertex);
  f->glDeleteShader(fragment);
  GLint linked = GL_FALSE;
  f->glGetProgramiv(program_, GL_LINK_STATUS, &linked);
  if (linked != GL_TRUE) return "link: " + programLog(f, program_);

  GLuint block = f->glGetUniformBlockIndex(program_, "InkBlock");
  if (block == GL_INVALID_INDEX) return std::string("link: no uniform block InkBlock");
  f->glUniformBlockBinding(program_, block, 0);
  targetLocation_ = f->glGetUniformLocation(program_, "uTarget");

  GLint previousProgram = 0;
  f->glGetIntegerv(GL_CURRENT_PROGRAM, &previousProgram);
  f->glUseProgram(program_);
  f->glUniform1i(f->glGetUniformLocation(program_, "uPrims"), 0);
  f->glUniform1i(f->glGetUniformLocation(program_, "uRanges"), 1);
  f->glUniform1i(f->glGetUniformLocation(program_, "uIndices"), 2);
  f->glUseProgram(GLuint(previousProgram));

  f->glGenVertexArrays(1, &vertexArray_);
  f->glGenBuffers(1, &uniformBuffer_);
  GLint previousBuffer = 0;
  f->glGetIntegerv(GL_UNIFORM_BUFFER_BINDING, &previousBuffer);
  f->glBindBuffer(GL_UNIFORM_BUFFER, uniformBuffer_);
  f->glBufferData(GL_UNIFORM_BUFFER, sizeof(InkUniforms), nullptr, GL_DYNAMIC_DRAW);
  f->glBindBuffer(GL_UNIFORM_BUFFER, GLuint(previousBuffer));
  ++allocations_;
  return std::nullopt;
}

void InkGpuPipeline::release() {
  QOpenGLExtraFunctions* f = context_->extraFunctions();
  for (ArrayTexture* texture : {&prims_, &ranges_, &indices_}) {
    if (texture->id) f->glDeleteTextures(1, &texture->id);
    texture->id = 0;
    texture->rows = 0;
  }
  if (uniformBuffer_) f->glDeleteBuffers(1, &uniformBuffer_);
  if (vertexArray_) f->glDeleteVertexArrays(1, &vertexArray_);
  if (program_) f->glDeleteProgram(program_);
  uniformBuffer_ = vertexArray_ = program_ = 0;
}

void InkGpuPipeline::upload(ArrayTexture& texture, const void* data, size_t texels, size_t bytesPerTexel) {
  QOpenGLExtraFunctions* f = context_->extraFunctions();
  int rows = int(std::max<size_t>((texels + kTextureWidth - 1) / kTextureWidth, 1));
  if (!texture.id) {
    f->glGenTextures(1, &texture.id);
    f->glBindTexture(GL_TEXTURE_2D, texture.id);
    f->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    f->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    f->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    f->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    f->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_BASE_LEVEL, 0);
    f->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAX_LEVEL, 0);
  } else {
    f->glBindTexture(GL_TEXTURE_2D, texture.id);
  }
  if (rows > texture.rows) {
    int grown = std::max(texture.rows, 1);
    while (grown < rows) grown *= 2;
    f->glTexImage2D(GL_TEXTURE_2D, 0, GLint(texture.internalFormat), kTextureWidth, grown, 0, texture.format,
                    texture.type, nullptr);
    texture.rows = grown;
    ++allocations_;
  }
  size_t fullRows = texels / kTextureWidth, rest = texels % kTextureWidth;
  const auto* bytes = static_cast<const unsigned char*>(data);
  if (fullRows > 0)
    f->glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, kTextureWidth, GLsizei(fullRows), texture.format, texture.type,
                       bytes);
  if (rest > 0)
    f->glTexSubImage2D(GL_TEXTURE_2D, 0, 0, GLint(fullRows), GLsizei(rest), 1, texture.format, texture.type,
                       bytes + fullRows * kTextureWidth * bytesPerTexel);
}

int InkGpuPipeline::draw(const InkPipeline::Binned& binned, const InkUniforms& uniforms, const InkTarget& target,
                         std::span<const InkDeviceRect> scissors) {
  if (binned.prims.empty() || binned.indices.empty() || binned.ranges.empty() || scissors.empty()) return 0;
  QOpenGLExtraFunctions* f = context_->extraFunctions();

  f->glBindBuffer(GL_PIXEL_UNPACK_BUFFER, 0);
  f->glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
  f->glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
  f->glActiveTexture(GL_TEXTURE0);
  upload(prims_, binned.prims.data(), binned.prims.size() * 3, 16);
  f->glActiveTexture(GL_TEXTURE1);
  upload(ranges_, binned.ranges.data(), binned.ranges.size() / 2, 8);
  f->glActiveTexture(GL_TEXTURE2);
  upload(indices_, binned.indices.data(), binned.indices.size(), 4);
  f->glActiveTexture(GL_TEXTURE0);

  f->glBindBuffer(GL_UNIFORM_BUFFER, uniformBuffer_);
  f->glBufferSubData(GL_UNIFORM_BUFFER, 0, sizeof(InkUniforms), &uniforms);
  f->glBindBufferBase(GL_UNIFORM_BUFFER, 0, uniformBuffer_);

  f->glUseProgram(program_);
  f->glUniform3f(targetLocation_, target.viewX, target.viewTop, target.rowsDown ? 1.0f : -1.0f);
  f->glBindVertexArray(vertexArray_);
  if (target.blend) {
    f->glEnable(GL_BLEND);
    f->glBlendEquation(GL_FUNC_ADD);
    f->glBlendFunc(GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
  } else {
    f->glDisable(GL_BLEND);
  }
  f->glViewport(0, 0, target.width, target.height);
  f->glEnable(GL_SCISSOR_TEST);
  int draws = 0;
  for (const InkDeviceRect& s : scissors) {
    if (s.width < 1 || s.height < 1) continue;
    f->glScissor(s.x, s.y, s.width, s.height);
    f->glDrawArrays(GL_TRIANGLES, 0, 3);
    ++draws;
  }
  return draws;
}

}  // namespace zorvane
