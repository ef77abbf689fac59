#include "core/learn/demonstration.h"

#include <locale.h>
#include <wctype.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

#include "core/base/utf8.h"

namespace zorvane {

static constexpr double kDoubleClickSeconds = 0.4;
static constexpr double kDoubleClickPoints = 6.0;
static constexpr double kTypingSeconds = 1.5;
static constexpr std::string_view kSecret = "{{secret}}";
static constexpr size_t kLongestSlug = 48;

// Times in sort order; not-a-number goes last, so the order stays strict and weak.
static double sortKey(double at) {
  return std::isnan(at) ? std::numeric_limits<double>::infinity() : at;
}

static bool within(double a, double b, double limit) {
  return std::fabs(a - b) < limit;
}

static DemoStep* lastStep(std::vector<DemoStep>& steps) {
  return steps.empty() ? nullptr : &steps.back();
}

static bool isTypingStep(const DemoStep* step) {
  return step != nullptr && step->kind == DemoStep::Kind::type;
}

static void addClick(std::vector<DemoStep>& steps, const RawEvent::Click& click,
                     double sincePrevious) {
  if (!click.right) {
    DemoStep* last = lastStep(steps);
    if (last != nullptr && last->kind == DemoStep::Kind::click &&
        within(sincePrevious, 0, kDoubleClickSeconds) && last->x && last->y &&
        within(*last->x, click.x, kDoubleClickPoints) &&
        within(*last->y, click.y, kDoubleClickPoints)) {
      last->kind = DemoStep::Kind::doubleClick;
      return;
    }
  }
  steps.push_back(DemoStep{click.right ? DemoStep::Kind::rightClick : DemoStep::Kind::click,
                           click.x, click.y, std::nullopt, click.element, click.frame});
}

static void addScroll(std::vector<DemoStep>& steps, const RawEvent::Scroll& scroll) {
  std::string direction = scroll.dy > 0 ? "down" : "up";
  DemoStep* last = lastStep(steps);
  if (last != nullptr && last->kind == DemoStep::Kind::scroll && last->text == direction) return;
  steps.push_back(DemoStep{DemoStep::Kind::scroll, std::nullopt, std::nullopt, direction});
}

static std::string_view modifierSymbol(std::string_view modifier) {
  if (modifier == "cmd") return "⌘";
  if (modifier == "option") return "⌥";
  if (modifier == "control") return "⌃";
  return modifier;
}

static void addKey(std::vector<DemoStep>& steps, const RawEvent::Key& key, double sincePrevious) {
  std::vector<std::string_view> modifiers;
  for (const std::string& modifier : key.modifiers) {
    if (modifier != "shift") modifiers.push_back(modifier);
  }
  DemoStep* last = lastStep(steps);
  bool continuesTyping = isTypingStep(last) && within(sincePrevious, 0, kTypingSeconds);

  if (key.text && !key.text->empty() && modifiers.empty()) {
    std::string_view typed = key.secure ? kSecret : std::string_view(*key.text);
    if (!continuesTyping) {
      steps.push_back(
          DemoStep{DemoStep::Kind::type, std::nullopt, std::nullopt, std::string(typed)});
      return;
    }
    std::string& text = *last->text;
    // A password is one placeholder, however long it is.
    if (key.secure && text.ends_with(kSecret)) return;
    text += typed;
    return;
  }

  if (key.key == "delete" && continuesTyping && !last->text->empty() &&
      !last->text->ends_with("}}")) {
    std::string& text = *last->text;
    text.resize(text.size() - utf8Suffix(text, 1).size());
    if (text.empty()) steps.pop_back();
    return;
  }

  std::string combination;
  for (std::string_view modifier : modifiers)
    combination.append(modifierSymbol(modifier)).append("+");
  if (key.key && !key.key->empty()) {
    combination += *key.key;
  } else if (key.text && !key.text->empty()) {
    combination += *key.text;
  } else {
    combination += "?";
  }
  steps.push_back(
      DemoStep{DemoStep::Kind::key, std::nullopt, std::nullopt, std::move(combination)});
}

std::vector<DemoStep> Demonstration::compile(std::vector<RawEvent> events) {
  std::stable_sort(events.begin(), events.end(), [](const RawEvent& a, const RawEvent& b) {
    return sortKey(a.at()) < sortKey(b.at());
  });
  std::vector<DemoStep> steps;
  double previous = 0;
  for (const RawEvent& event : events) {
    double sincePrevious = event.at() - previous;
    if (std::isnan(sincePrevious)) sincePrevious = std::numeric_limits<double>::infinity();
    if (auto click = event.as<RawEvent::Click>()) addClick(steps, *click, sincePrevious);
    if (auto scroll = event.as<RawEvent::Scroll>()) addScroll(steps, *scroll);
    if (auto key = event.as<RawEvent::Key>()) addKey(steps, *key, sincePrevious);
    previous = event.at();
  }
  return steps;
}

// The C library's Unicode tables, for telling letters and numbers of every script apart
// from punctuation and for lower-casing them. Absent if the C.UTF-8 locale is missing.
static locale_t unicodeLocale() {
  static locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(nullptr));
  return locale;
}

// Decodes one scalar of valid UTF-8 at `pos`, moving `pos` past it.
static char32_t decodeScalar(std::string_view text, size_t& pos) {
  auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  unsigned char lead = byte(pos);
  size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  char32_t scalar = length == 1   ? lead
                    : length == 2 ? lead & 0x1F
                    : length == 3 ? lead & 0x0F
                                  : lead & 0x07;
  for (size_t i = 1; i < length && pos + i < text.size(); ++i)
    scalar = (scalar << 6) | (byte(pos + i) & 0x3F);
  pos += length;
  return scalar;
}

static void appendScalar(std::string& out, char32_t scalar) {
  if (scalar < 0x80) {
    out.push_back(static_cast<char>(scalar));
  } else if (scalar < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (scalar >> 6)));
    out.push_back(static_cast<char>(0x80 | (scalar & 0x3F)));
  } else if (scalar < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (scalar >> 12)));
    out.push_back(static_cast<char>(0x80 | ((scalar >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (scalar & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (scalar >> 18)));
    out.push_back(static_cast<char>(0x80 | ((scalar >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((scalar >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (scalar & 0x3F)));
  }
}

static bool isCombiningMark(char32_t scalar) {
  return (scalar >= 0x0300 && scalar <= 0x036F) || (scalar >= 0x1AB0 && scalar <= 0x1AFF) ||
         (scalar >= 0x1DC0 && scalar <= 0x1DFF) || (scalar >= 0x20D0 && scalar <= 0x20FF) ||
         (scalar >= 0xFE20 && scalar <= 0xFE2F);
}

// The scalar lower-cased if it is a letter or a number; absent for anything else.
static std::optional<char32_t> slugCharacter(char32_t scalar) {
  if (scalar < 0x80) {
    if (scalar >= 'A' && scalar <= 'Z') return scalar - 'A' + 'a';
    if ((scalar >= 'a' && scalar <= 'z') || (scalar >= '0' && scalar <= '9')) return scalar;
    return std::nullopt;
  }
  locale_t locale = unicodeLocale();
  if (locale == static_cast<locale_t>(nullptr))
    return scalar;  // without tables, keep it as a letter
  auto wide = static_cast<wint_t>(scalar);
  if (!iswalnum_l(wide, locale)) return std::nullopt;
  return static_cast<char32_t>(towlower_l(wide, locale));
}

std::string Demonstration::slug(std::string_view name) {
  return slug(name, std::chrono::system_clock::now());
}

std::string Demonstration::slug(std::string_view name, SystemTime now) {
  std::string text = repairUTF8(name);
  std::string joined;
  bool pendingHyphen = false;
  bool afterCharacter = false;
  for (size_t pos = 0; pos < text.size();) {
    char32_t scalar = decodeScalar(text, pos);
    // An accent written as a mark of its own ("e" + U+0301) stays with its letter.
    if (afterCharacter && isCombiningMark(scalar)) {
      appendScalar(joined, scalar);
      continue;
    }
    std::optional<char32_t> character = slugCharacter(scalar);
    afterCharacter = character.has_value();
    if (!character) {
      pendingHyphen = !joined.empty();
      continue;
    }
    if (pendingHyphen) joined.push_back('-');
    pendingHyphen = false;
    appendScalar(joined, *character);
  }
  if (!joined.empty()) return utf8Prefix(joined, kLongestSlug);
  auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now.time_since_epoch()).count();
  return "skill-" + std::to_string(seconds);
}

std::string Demonstration::stepLines(const std::vector<DemoStep>& steps,
                                     std::string_view skillDir) {
  std::string lines;
  for (size_t i = 0; i < steps.size(); ++i) {
    if (i > 0) lines += "\n";
    lines += std::to_string(i + 1) + ". " + steps[i].line();
    if (steps[i].frame) {
      lines += "   [screenshot before this step: " + std::string(skillDir) + "/" + *steps[i].frame +
               "; the red ring marks the click]";
    }
  }
  return lines;
}

std::string Demonstration::compilePrompt(const PromptInput& input) {
  const std::string& app = input.app;
  std::string purpose = input.purpose.empty() ? "(infer from the steps)" : input.purpose;
  return "I just demonstrated a task in " + app + " (" + input.bundleID +
         ") while you watched. Turn it into a reusable skill.\n\nSkill name: " + input.name +
         "\nWhat it's for: " + purpose +
         "\n\nRecorded steps (window-relative points; screenshots are already saved in the skill "
         "folder):\n" +
         stepLines(input.steps, input.skillDir) +
         "\n\nDo this:\n1. Look at the screenshots (Read them) to understand what each click "
         "actually targets.\n2. Write " +
         input.skillDir + "/SKILL.md with YAML frontmatter `name: " + input.slug +
         "` and a `description:` that says when to use it (mention " + app +
         "), then:\n   - a short goal line,\n   - **Inputs**: the parts that would change next "
         "time (recipient, search "
         "text, amounts…) as {{placeholders}}, inferred from what I typed,\n   - **Steps**: "
         "numbered, clear and easy to "
         "follow, naming buttons and fields by their visible label; drop redundant or accidental "
         "actions; include a "
         "coordinate only as a fallback hint,\n   - **How to do it with Zorvane**: use the zorvane "
         "tools (screenshot, "
         "read_ui_tree, press/set_value, click, type_text, press_key) on the " +
         app +
         " window; screenshot after each important step to verify,\n   - **Done when**: how to "
         "confirm it worked.\n3. "
         "Reply with a 2-line summary of the skill and its inputs. Don't run it now.";
}

}  // namespace zorvane
