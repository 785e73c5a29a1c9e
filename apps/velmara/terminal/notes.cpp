#include "terminal/notes.h"

#include <unistd.h>

#include <cstdio>

#include <fmt/format.h>

#include "terminal/output.h"
#include "velmara/client/texts.h"

namespace velmara {

namespace {

constexpr auto TickTime = std::chrono::milliseconds(200);
constexpr auto TickDelay = std::chrono::seconds(1);  // a phase shorter than this shows no running time

double seconds(std::chrono::steady_clock::duration time) {
  return std::chrono::duration<double>(time).count();
}

}  // namespace

Notes::Notes() : m_terminal(isTerminalFile(STDERR_FILENO)), m_jobStart(Clock::now()) {}

void Notes::note(const std::string& text) {
  if (!m_quiet) {
    warn(text);
  }
}

void Notes::warn(const std::string& text) {
  clearLine();
  std::fprintf(stderr, "%s\n", printable(text).c_str());
}

void Notes::phase(const std::string& text) {
  const Clock::time_point now = Clock::now();
  if (!m_inJob) {
    m_jobStart = now;
    m_inJob = true;
  }
  m_phaseStart = now;
  m_phase = fmt::format("[{:5.1f} s] {}", seconds(now - m_jobStart), text);
  note(m_phase);
}

void Notes::tick() {
  const Clock::time_point now = Clock::now();
  if (!m_terminal || m_quiet || !m_inJob || now - m_phaseStart < TickDelay || now - m_lastTick < TickTime) {
    return;
  }
  m_lastTick = now;
  std::fprintf(stderr, "\r[%5.1f s] ... Ctrl-C stops\x1b[K", seconds(now - m_jobStart));
  std::fflush(stderr);
  m_lineOpen = true;
}

void Notes::progress(const std::string& text) {
  const Clock::time_point now = Clock::now();
  if (!m_terminal || m_quiet || now - m_lastTick < TickTime) {
    return;
  }
  m_lastTick = now;
  std::fprintf(stderr, "\r%s\x1b[K", printable(text).c_str());
  std::fflush(stderr);
  m_lineOpen = true;
}

void Notes::endPhases(const std::string& text) {
  clearLine();
  if (m_inJob && !text.empty()) {
    note(fmt::format("[{:5.1f} s] {}", seconds(Clock::now() - m_jobStart), text));
  }
  m_inJob = false;
}

std::chrono::milliseconds Notes::elapsed() const {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - m_jobStart);
}

void Notes::clearLine() {
  if (m_lineOpen) {
    std::fputs("\r\x1b[K", stderr);
    m_lineOpen = false;
  }
}

}  // namespace velmara
