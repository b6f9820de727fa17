// window-probe.exe: watches, from a process of its own, the windows that
// ZandolinEngine.exe shows, and tells a test script what it sees.
//
//   window-probe.exe FLAGDIR [SECONDS]
//
// Looks every 10 ms for the progress window (found by its caption) and the
// pop-up (a dialog box titled "Zandolin"), for at most SECONDS (default 60).
// Prints, one line each:
//   screen W H                     the screen's size in pixels
//   window caption|style flags     when the progress window is first seen shown
//   frame L T W H                  its outer rectangle on the screen
//   client L T W H                 its client area on the screen
//   child CLASS L T W H            each control, relative to the client area
//   label TEXT                     each new text of the label, as sampled
//   bar MIN MAX POS                the bar, read while the pop-up is up
//   box TEXT                       the pop-up's text (line ends as \n)
//   box closed                     when the pop-up has gone
//   gone                           when the progress window has disappeared
// and creates, in FLAGDIR (a Windows path), the empty files "box" when the
// pop-up is up and "finished" when the label reads "Zandolin finished ...".
// A window of another process is read without sending it a message (its
// texts are the system's copies), except for the bar, whose position is
// asked with a time-out: the engine answers only while it pumps, and a
// message box pumps.
#include <windows.h>
#include <commctrl.h>

#include <cstdio>
#include <string>
#include <vector>

namespace {

std::string Text(HWND window) {
  char buffer[4096] = {};
  ::GetWindowTextA(window, buffer, sizeof buffer);
  std::string text = buffer;
  std::string out;
  for (char c : text) {
    if (c == '\r') continue;
    if (c == '\n')
      out += "\\n";
    else
      out += c;
  }
  return out;
}

std::string ClassOf(HWND window) {
  char buffer[256] = {};
  ::GetClassNameA(window, buffer, sizeof buffer);
  return buffer;
}

void Flag(const std::string& dir, const char* name) {
  const std::string path = dir + "\\" + name;
  HANDLE file = ::CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  if (file != INVALID_HANDLE_VALUE) ::CloseHandle(file);
}

BOOL CALLBACK CollectChild(HWND child, LPARAM list) {
  reinterpret_cast<std::vector<HWND>*>(list)->push_back(child);
  return TRUE;
}

std::vector<HWND> Children(HWND window) {
  std::vector<HWND> list;
  ::EnumChildWindows(window, CollectChild, reinterpret_cast<LPARAM>(&list));
  return list;
}

std::string StyleFlags(HWND window) {
  const LONG style = ::GetWindowLongA(window, GWL_STYLE);
  std::string flags;
  auto add = [&](bool on, const char* name) {
    if (!on) return;
    if (!flags.empty()) flags += ' ';
    flags += name;
  };
  add((style & WS_CAPTION) == WS_CAPTION, "caption");
  add(style & WS_SYSMENU, "sysmenu");
  add(style & WS_THICKFRAME, "sizable");
  add(style & WS_MINIMIZEBOX, "minimizebox");
  add(style & WS_MAXIMIZEBOX, "maximizebox");
  return flags;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: window-probe FLAGDIR [SECONDS]\n");
    return 2;
  }
  const std::string flagDir = argv[1];
  const DWORD limitMs = (argc > 2 ? std::atoi(argv[2]) : 60) * 1000;
  std::printf("screen %d %d\n", ::GetSystemMetrics(SM_CXSCREEN), ::GetSystemMetrics(SM_CYSCREEN));
  std::fflush(stdout);

  const DWORD start = ::GetTickCount();
  bool described = false, boxSeen = false, boxClosed = false, finished = false;
  std::string lastLabel;
  while (::GetTickCount() - start < limitMs) {
    HWND window = ::FindWindowA(nullptr, "Zandolin Engine Progress ...");
    const bool shown = window && ::IsWindowVisible(window);
    if (described && !window) {
      std::printf("gone\n");
      std::fflush(stdout);
      return 0;
    }
    if (shown && !described) {
      described = true;
      RECT frame, client;
      ::GetWindowRect(window, &frame);
      ::GetClientRect(window, &client);
      POINT origin = {0, 0};
      ::ClientToScreen(window, &origin);
      std::printf("window %s|%s\n", Text(window).c_str(), StyleFlags(window).c_str());
      std::printf("frame %ld %ld %ld %ld\n", frame.left, frame.top, frame.right - frame.left,
                  frame.bottom - frame.top);
      std::printf("client %ld %ld %ld %ld\n", origin.x, origin.y, client.right, client.bottom);
      for (HWND child : Children(window)) {
        RECT r;
        ::GetWindowRect(child, &r);
        std::printf("child %s %ld %ld %ld %ld\n", ClassOf(child).c_str(), r.left - origin.x,
                    r.top - origin.y, r.right - r.left, r.bottom - r.top);
      }
    }
    HWND label = nullptr, bar = nullptr;
    if (window) {
      for (HWND child : Children(window)) {
        const std::string kind = ClassOf(child);
        if (lstrcmpiA(kind.c_str(), "Static") == 0) label = child;
        if (lstrcmpiA(kind.c_str(), PROGRESS_CLASSA) == 0) bar = child;
      }
    }
    if (shown && label) {
      const std::string text = Text(label);
      if (text != lastLabel) {
        lastLabel = text;
        std::printf("label %s\n", text.c_str());
        if (text == "Zandolin finished ..." && !finished) {
          finished = true;
          Flag(flagDir, "finished");
        }
      }
    }
    HWND box = ::FindWindowA("#32770", "Zandolin");
    if (boxSeen && !boxClosed && !box) {
      boxClosed = true;
      std::printf("box closed\n");
    }
    if (box && !boxSeen && ::IsWindowVisible(box)) {
      boxSeen = true;
      if (bar) {
        DWORD_PTR low = 0, high = 0, pos = 0;
        ::SendMessageTimeoutA(bar, PBM_GETRANGE, TRUE, 0, SMTO_ABORTIFHUNG, 1000, &low);
        ::SendMessageTimeoutA(bar, PBM_GETRANGE, FALSE, 0, SMTO_ABORTIFHUNG, 1000, &high);
        ::SendMessageTimeoutA(bar, PBM_GETPOS, 0, 0, SMTO_ABORTIFHUNG, 1000, &pos);
        std::printf("bar %d %d %d\n", static_cast<int>(low), static_cast<int>(high),
                    static_cast<int>(pos));
      }
      for (HWND child : Children(box)) {
        if (lstrcmpiA(ClassOf(child).c_str(), "Static") == 0 && !Text(child).empty())
          std::printf("box %s\n", Text(child).c_str());
      }
      std::fflush(stdout);
      Flag(flagDir, "box");
    }
    std::fflush(stdout);
    ::Sleep(10);
  }
  std::printf("time-out\n");
  return 1;
}
