#include "core/learn/skills.h"

#include <filesystem>

#include "core/base/file_io.h"
#include "core/base/log.h"
#include "core/learn/demonstration.h"

namespace zorvane {

namespace fs = std::filesystem;

// A frame is named by the recorder ("step-03.jpg"); anything that isn't a plain file
// name could reach outside the two folders and is not copied.
static bool isPlainFileName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

static void copyFrames(const std::vector<DemoStep>& steps, const std::string& from,
                       const std::string& to) {
  for (const DemoStep& step : steps) {
    if (!step.frame) continue;
    if (!isPlainFileName(*step.frame)) {
      Log::info("skill " + to + ": frame name " + *step.frame + " isn't a file name; not copied");
      continue;
    }
    std::error_code error;
    fs::copy_file(from + "/" + *step.frame, to + "/" + *step.frame,
                  fs::copy_options::overwrite_existing, error);
    if (error)
      Log::info("skill " + to + ": couldn't copy frame " + *step.frame + " (" + error.message() +
                ")");
  }
}

// Whether `inner` is `outer` or lies inside it, comparing the paths as the file system
// resolves them.
static bool isWithin(const fs::path& inner, const fs::path& outer) {
  auto [outerEnd, innerAt] = std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end());
  return outerEnd == outer.end();
}

// Removes the recorder's working folder, unless it is, holds or lies in the skill folder.
static void removeRecordingFolder(const std::string& recordingFolder,
                                  const std::string& skillFolder) {
  if (recordingFolder.empty()) return;
  std::error_code error;
  fs::path recording = fs::weakly_canonical(recordingFolder, error);
  if (error) return;
  fs::path skill = fs::weakly_canonical(skillFolder, error);
  if (error) return;
  if (isWithin(skill, recording) || isWithin(recording, skill)) {
    Log::info("skill " + skillFolder + ": the recording folder " + recordingFolder +
              " overlaps it; left in place");
    return;
  }
  fs::remove_all(recording, error);
  if (error)
    Log::info("skill " + skillFolder + ": couldn't remove " + recordingFolder + " (" +
              error.message() + ")");
}

static std::string encodeSteps(const std::vector<DemoStep>& steps) {
  JSONValue array = JSONValue::array();
  for (const DemoStep& step : steps) array.push_back(step.encode());
  return encodePretty(array);
}

Skills::SavedSkill Skills::save(const SaveRequest& request, SkillIndex& index, ActivityLog& log,
                                SystemTime now) {
  std::string slug = Demonstration::slug(request.name, now);
  std::string folder = SkillIndex::skillsRoot() + "/" + slug;
  if (auto made = createDirectories(folder); !made)
    Log::info("skill " + folder + ": " + made.error());

  copyFrames(request.steps, request.recordingFolder, folder);
  if (auto written = writeFileAtomically(folder + "/recording.json", encodeSteps(request.steps));
      !written) {
    Log::info("skill " + folder + ": couldn't write recording.json (" + written.error() + ")");
  }
  removeRecordingFolder(request.recordingFolder, folder);

  index.add(LearnedSkill{request.name, slug, request.bundleID, request.app, request.purpose, now,
                         std::nullopt, std::nullopt, std::nullopt, std::nullopt});
  std::string count = std::to_string(request.steps.size());
  log.add(ActivityEvent(ActivityEvent::Kind::skill, "Skill · " + request.name,
                        "Learned from your demo in " + request.app + " (" + count + " steps)"));

  std::string prompt = Demonstration::compilePrompt({
      .name = request.name,
      .slug = slug,
      .purpose = request.purpose,
      .app = request.app,
      .bundleID = request.bundleID,
      .skillDir = folder,
      .steps = request.steps,
  });
  return {slug, folder, std::move(prompt),
          "Learn “" + request.name + "” from my demo (" + count + " steps)"};
}

}  // namespace zorvane
