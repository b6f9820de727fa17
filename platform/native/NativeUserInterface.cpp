//===- NativeUserInterface.cpp - Windows, boxes and timers ------*- C++ -*-===//
//
// The message box, the event pump, the timers and the progress window.
//
//===----------------------------------------------------------------------===//
//
// Rules of this file:
// - Everything runs on the engine's one thread. Timer ticks and socket events
//   reach their owner only inside the pump (DoEvents(), WaitForEvents()): what
//   the system delivers elsewhere (in the modal loop of a message box, say) is
//   kept and handed over at the next pump.
// - A pump looks at the message queue at most once every kLookIntervalMs,
//   unless something is already waiting here or the window asked to be
//   painted: the progress pulse pumps once per step, and asking the system
//   for messages costs far more than the step itself (a round trip to
//   another process under Wine). A pump in between only delivers what is
//   kept here, and that costs nothing.
// - WaitForEvents() sleeps in MsgWaitForMultipleObjects until input of any
//   kind (a message, a timer tick, a socket event, a paint) arrives, so that
//   a process that outlives Main waits without keeping a core busy. DoEvents()
//   does the same when its caller has done nothing through the boundary
//   since its last pump but ask a socket's state: such a loop (the waits of
//   the SMTP session) can only go on when an event comes. The progress pulse
//   always sets the window first, and so never waits.
// - The progress window never repaints synchronously: a redraw only marks it
//   invalid (once until the next paint), and the pump paints at most once
//   every kPaintIntervalMs, because the engine makes one progress statement
//   per step and a run may make millions of them. The bar's moves are applied
//   at those paints too; its settings (start, finish) are applied at once.
// - A pump grants kQuietPulses progress pulses (platform::QuietPulses) when
//   the progress window exists, no timer runs and nothing is kept for the
//   pump: the engine then only counts them, and the next call here takes the
//   bar to where they left it. Any other call of the engine through the
//   boundary takes the grant back, so that the quiet pulses are those of
//   pure computation, microseconds.
// - Common controls are initialised through a run-time lookup, so that a
//   system without InitCommonControlsEx still starts the engine.
// - user32.dll and gdi32.dll are loaded at the first call that needs them
//   (NativeLibraries.h): a run without a window, a timer, a socket or a box
//   loads neither.
//
//===----------------------------------------------------------------------===//

#include "platform/native/NativeLibraries.h"
#include "platform/native/NativeServices.h"

#include <windows.h>
#include <commctrl.h>

#include <map>
#include <vector>

namespace platform::native {

namespace {

constexpr DWORD kPaintIntervalMs = 40;
constexpr int kQuietPulses = 255;
constexpr DWORD kLookIntervalMs = 10;
// The longest idle wait; the pump runs a round after it even if nothing came.
constexpr DWORD kIdleWaitMs = 1000;
constexpr DWORD kShortIdleWaitMs = 50;

constexpr const char* kEventWindowClass = "ZandolinEngineEvents";
constexpr const char* kProgressWindowClass = "ZandolinEngineProgress";
constexpr const char* kProgressCaption = "Zandolin Engine Progress ...";
constexpr const char* kProgressLabelDesign = "Progress statements ...";

// The form's layout in twips.
constexpr int kClientWidthTwips = 6645, kClientHeightTwips = 1485;
constexpr int kLabelLeft = 120, kLabelTop = 120, kLabelWidth = 6375, kLabelHeight = 735;
constexpr int kBarLeft = 120, kBarTop = 960, kBarWidth = 6375, kBarHeight = 375;

struct TimerSlot {
  TimerEvents* owner = nullptr;
  DWORD intervalMs = 0;
  bool enabled = false;
  bool pending = false;  // a tick arrived outside the pump
};

struct ProgressWindow {
  HWND window = nullptr;
  HWND label = nullptr;
  HWND bar = nullptr;
  bool barMovePending = false;
  int pendingValue = 0;
  bool invalidated = false;  // marked for the next paint round already
};

// The functions of user32.dll, found at the first call of any of them.
struct User32 {
  HMODULE module = LoadSystemLibrary("user32.dll");
  ZANDOLIN_ENTRY(AdjustWindowRectEx);
  ZANDOLIN_ENTRY(CreateWindowExA);
  ZANDOLIN_ENTRY(DefWindowProcA);
  ZANDOLIN_ENTRY(DestroyWindow);
  ZANDOLIN_ENTRY(DispatchMessageA);
  ZANDOLIN_ENTRY(GetDC);
  ZANDOLIN_ENTRY(GetSystemMetrics);
  ZANDOLIN_ENTRY(InvalidateRect);
  ZANDOLIN_ENTRY(KillTimer);
  ZANDOLIN_ENTRY(LoadCursorA);
  ZANDOLIN_ENTRY(MessageBoxA);
  ZANDOLIN_ENTRY(MsgWaitForMultipleObjects);
  ZANDOLIN_ENTRY(PeekMessageA);
  ZANDOLIN_ENTRY(RegisterClassA);
  ZANDOLIN_ENTRY(ReleaseDC);
  ZANDOLIN_ENTRY(SendMessageA);
  ZANDOLIN_ENTRY(SetForegroundWindow);
  ZANDOLIN_ENTRY(SetTimer);
  ZANDOLIN_ENTRY(SetWindowTextA);
  ZANDOLIN_ENTRY(ShowWindow);
  ZANDOLIN_ENTRY(TranslateMessage);
  // Windows 98 and 2000 on; null before.
  decltype(&::MsgWaitForMultipleObjectsEx) MsgWaitForMultipleObjectsEx =
      FindEntry<decltype(&::MsgWaitForMultipleObjectsEx)>(module, "MsgWaitForMultipleObjectsEx");
};

const User32& User() {
  static const User32 functions;
  return functions;
}

// The functions of gdi32.dll, found at the first call of any of them.
struct Gdi32 {
  HMODULE module = LoadSystemLibrary("gdi32.dll");
  ZANDOLIN_ENTRY(GetDeviceCaps);
  ZANDOLIN_ENTRY(GetStockObject);
};

const Gdi32& Gdi() {
  static const Gdi32 functions;
  return functions;
}

HINSTANCE Instance() { return ::GetModuleHandleA(nullptr); }

class NativeUserInterface;
NativeUserInterface* gInterface = nullptr;

LRESULT CALLBACK EventWindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
LRESULT CALLBACK ProgressWindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

void InitCommonControlsOnce() {
  static bool done = false;
  if (done) return;
  done = true;
  HMODULE comctl = LoadSystemLibrary("comctl32.dll");
  if (!comctl) return;
  typedef BOOL(WINAPI * InitExFn)(const INITCOMMONCONTROLSEX*);
  typedef void(WINAPI * InitFn)();
  auto initEx = reinterpret_cast<InitExFn>(
      reinterpret_cast<void*>(::GetProcAddress(comctl, "InitCommonControlsEx")));
  if (initEx) {
    INITCOMMONCONTROLSEX controls = {sizeof controls, ICC_PROGRESS_CLASS};
    initEx(&controls);
    return;
  }
  auto init = reinterpret_cast<InitFn>(
      reinterpret_cast<void*>(::GetProcAddress(comctl, "InitCommonControls")));
  if (init) init();
}

// Whether PeekMessageA takes the PM_QS_ filters: Windows 98 and 2000 on.
bool QueueFiltersSupported() {
  OSVERSIONINFOA version = {};
  version.dwOSVersionInfoSize = sizeof version;
  if (!::GetVersionExA(&version)) return false;
  if (version.dwPlatformId == VER_PLATFORM_WIN32_NT) return version.dwMajorVersion >= 5;
  return version.dwMajorVersion > 4 || version.dwMinorVersion >= 10;
}

class NativeUserInterface final : public UserInterface {
 public:
  NativeUserInterface() { gInterface = this; }

  int MessageBox(const std::string& text, const std::string& title, UINT style) override {
    ++activity_;
    // The box's own loop paints the progress window while it waits: let the
    // bar stand where the engine has put it.
    ApplyPendingBarMove();
    return User().MessageBoxA(nullptr, text.c_str(), title.c_str(), style | MB_SETFOREGROUND);
  }

  // A caller that has done nothing through the boundary since its last pump
  // (asking a socket's state aside) can only be waiting for an event: it
  // waits here, so that a wait of the session does not keep a core busy.
  void DoEvents() override {
    const bool waiting = activity_ == activityAtPump_;
    activityAtPump_ = activity_;
    if (waiting)
      WaitForEvents();
    else
      Pump(false);
    const bool quiet = progress_.window && timers_.empty() && !Waiting();
    platform::Services().pulses.granted = quiet ? kQuietPulses : 0;
  }

  void WaitForEvents() override {
    if (!Waiting()) IdleWait();
    Pump(true);
    activityAtPump_ = activity_;
  }

  // Something the engine did through the boundary, besides pumping.
  void NoteActivity() { ++activity_; }

  int CreateTimer(TimerEvents* owner, DWORD intervalMs, bool enabled) override {
    ++activity_;
    const int id = nextTimer_++;
    TimerSlot& slot = timers_[id];
    slot.owner = owner;
    slot.intervalMs = intervalMs;
    EnableTimer(id, enabled);
    return id;
  }

  void EnableTimer(int timer, bool enabled) override {
    ++activity_;
    auto found = timers_.find(timer);
    if (found == timers_.end()) return;
    TimerSlot& slot = found->second;
    slot.pending = false;
    slot.enabled = enabled;
    HWND window = MessageWindow();
    if (enabled && slot.intervalMs > 0 && window)
      User().SetTimer(window, static_cast<UINT_PTR>(timer), slot.intervalMs, nullptr);
    else if (window)
      User().KillTimer(window, static_cast<UINT_PTR>(timer));
  }

  void DestroyTimer(int timer) override {
    ++activity_;
    auto found = timers_.find(timer);
    if (found == timers_.end()) return;
    if (HWND window = MessageWindow()) User().KillTimer(window, static_cast<UINT_PTR>(timer));
    timers_.erase(found);
  }

  HWND CreateProgressWindow() override {
    ++activity_;
    if (progress_.window) return progress_.window;
    InitCommonControlsOnce();
    static bool registered = false;
    if (!registered) {
      WNDCLASSA windowClass = {};
      windowClass.lpfnWndProc = ProgressWindowProc;
      windowClass.hInstance = Instance();
      windowClass.hCursor = User().LoadCursorA(nullptr, IDC_ARROW);
      windowClass.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_BTNFACE + 1);
      windowClass.lpszClassName = kProgressWindowClass;
      registered = User().RegisterClassA(&windowClass) != 0;
    }

    HDC screen = User().GetDC(nullptr);
    const int dpiX = screen ? Gdi().GetDeviceCaps(screen, LOGPIXELSX) : 96;
    const int dpiY = screen ? Gdi().GetDeviceCaps(screen, LOGPIXELSY) : 96;
    if (screen) User().ReleaseDC(nullptr, screen);
    auto x = [dpiX](int twips) { return ::MulDiv(twips, dpiX, 1440); };
    auto y = [dpiY](int twips) { return ::MulDiv(twips, dpiY, 1440); };

    const DWORD style = WS_OVERLAPPED | WS_CAPTION | WS_SYSMENU | WS_CLIPCHILDREN;
    const DWORD exStyle = WS_EX_WINDOWEDGE;
    RECT frame = {0, 0, x(kClientWidthTwips), y(kClientHeightTwips)};
    User().AdjustWindowRectEx(&frame, style, FALSE, exStyle);
    const int width = frame.right - frame.left;
    const int height = frame.bottom - frame.top;
    const int left = (User().GetSystemMetrics(SM_CXSCREEN) - width) / 2;
    const int top = (User().GetSystemMetrics(SM_CYSCREEN) - height) / 2;

    HWND window = User().CreateWindowExA(exStyle, kProgressWindowClass, kProgressCaption, style,
                                         left, top, width, height, nullptr, nullptr, Instance(),
                                         nullptr);
    if (!window) return nullptr;
    progress_.window = window;
    const DWORD labelStyle = WS_CHILD | WS_VISIBLE | SS_LEFT | SS_NOPREFIX;
    progress_.label = User().CreateWindowExA(0, "STATIC", kProgressLabelDesign, labelStyle,
                                             x(kLabelLeft), y(kLabelTop), x(kLabelWidth),
                                             y(kLabelHeight), window, nullptr, Instance(), nullptr);
    progress_.bar = User().CreateWindowExA(0, PROGRESS_CLASSA, "", WS_CHILD | WS_VISIBLE,
                                           x(kBarLeft), y(kBarTop), x(kBarWidth), y(kBarHeight),
                                           window, nullptr, Instance(), nullptr);
    const WPARAM font = reinterpret_cast<WPARAM>(Gdi().GetStockObject(DEFAULT_GUI_FONT));
    if (progress_.label) User().SendMessageA(progress_.label, WM_SETFONT, font, FALSE);
    if (progress_.bar) {
      User().SendMessageA(progress_.bar, PBM_SETRANGE32, 0, 100);
      User().SendMessageA(progress_.bar, PBM_SETPOS, 0, 0);
    }
    return window;
  }

  void ShowProgressWindow() override {
    ++activity_;
    if (!progress_.window) return;
    ApplyPendingBarMove();
    User().ShowWindow(progress_.window, SW_SHOWNORMAL);
    User().SetForegroundWindow(progress_.window);
    paintAsked_ = true;
  }

  void SetProgressLabel(const std::string& text) override {
    ++activity_;
    if (progress_.label) User().SetWindowTextA(progress_.label, text.c_str());
  }

  void SetProgressBar(int maximum, int value) override {
    ++activity_;
    TakeQuietPulses();
    progress_.barMovePending = false;
    if (!progress_.bar) return;
    User().SendMessageA(progress_.bar, PBM_SETRANGE32, 0, maximum);
    User().SendMessageA(progress_.bar, PBM_SETPOS, static_cast<WPARAM>(value), 0);
    // The start and the finish are each followed by a sleep without pumping:
    // the next pump paints, so that the window shows them meanwhile.
    paintAsked_ = true;
  }

  void MoveProgressBar(int value) override {
    ++activity_;
    TakeQuietPulses();
    progress_.barMovePending = true;
    progress_.pendingValue = value;
  }

  void RedrawProgressWindow() override {
    ++activity_;
    if (!progress_.window || progress_.invalidated) return;
    User().InvalidateRect(progress_.window, nullptr, FALSE);
    progress_.invalidated = true;
  }

  void DestroyProgressWindow() override {
    ++activity_;
    if (progress_.window) User().DestroyWindow(progress_.window);
    progress_ = ProgressWindow();
  }

  // A tick of the system timer with this id.
  void TimerTick(UINT_PTR id) {
    auto found = timers_.find(static_cast<int>(id));
    if (found == timers_.end() || !found->second.enabled) return;
    if (pumpDepth_ > 0) {
      found->second.owner->OnTimer();
    } else if (!found->second.pending) {
      found->second.pending = true;
      ++ticksKept_;
    }
  }

  // A socket's report: kept, and handed on at once inside the pump.
  void SocketMessage(WPARAM socket, LPARAM message) {
    QueueSocketMessage(socket, message);
    if (pumpDepth_ > 0) DeliverSocketEvents();
  }

  // The progress window went away (closed by the user): forget its handles.
  void ProgressWindowDestroyed(HWND window) {
    if (window == progress_.window) progress_ = ProgressWindow();
  }

  HWND EventWindow() {
    if (eventWindow_ || eventWindowFailed_) return eventWindow_;
    WNDCLASSA windowClass = {};
    windowClass.lpfnWndProc = EventWindowProc;
    windowClass.hInstance = Instance();
    windowClass.lpszClassName = kEventWindowClass;
    User().RegisterClassA(&windowClass);
    eventWindow_ = User().CreateWindowExA(0, kEventWindowClass, "", 0, 0, 0, 0, 0, HWND_MESSAGE,
                                          nullptr, Instance(), nullptr);
    if (!eventWindow_)  // no message-only windows here: a window that is never shown
      eventWindow_ = User().CreateWindowExA(0, kEventWindowClass, "", WS_POPUP, 0, 0, 0, 0,
                                            nullptr, nullptr, Instance(), nullptr);
    eventWindowFailed_ = eventWindow_ == nullptr;
    return eventWindow_;
  }

 private:
  // Whether ticks or socket events wait here for the pump.
  bool Waiting() const { return ticksKept_ > 0 || SocketEventsPending(); }

  // Sleeps until input of any kind is in the queue, kIdleWaitMs at most.
  // Without MWMO_INPUTAVAILABLE (before Windows 98 and 2000) input that an
  // earlier look left in the queue does not end the wait, which is then
  // kept short.
  void IdleWait() {
    if (const auto waitEx = User().MsgWaitForMultipleObjectsEx)
      waitEx(0, nullptr, kIdleWaitMs, QS_ALLINPUT, MWMO_INPUTAVAILABLE);
    else
      User().MsgWaitForMultipleObjects(0, nullptr, FALSE, kShortIdleWaitMs, QS_ALLINPUT);
  }

  // One round: what was kept, then the messages in the queue once. A round
  // that is not full looks at the queue only every kLookIntervalMs, and
  // paints only every kPaintIntervalMs.
  void Pump(bool full) {
    const DWORD now = ::GetTickCount();
    if (!full && now - lastLook_ < kLookIntervalMs && !paintAsked_ && !Waiting()) return;
    lastLook_ = now;
    ++pumpDepth_;
    DeliverPendingTicks();
    DeliverSocketEvents();
    const bool paintDue = full || paintAsked_ || now - lastPaint_ >= kPaintIntervalMs;
    if (paintDue) {
      lastPaint_ = now;
      paintAsked_ = false;
      ApplyPendingBarMove();
      progress_.invalidated = false;  // this round paints what was marked
    }
    // Between paint rounds only input, posted and sent messages (timers and
    // socket events included) are taken; paints wait for their round.
    static const bool filtersSupported = QueueFiltersSupported();
    const UINT filter = paintDue || !filtersSupported
                            ? 0
                            : (PM_QS_INPUT | PM_QS_POSTMESSAGE | PM_QS_SENDMESSAGE);
    MSG message;
    while (User().PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE | filter)) {
      if (message.message == WM_QUIT) continue;
      User().TranslateMessage(&message);
      User().DispatchMessageA(&message);
    }
    --pumpDepth_;
  }

  void DeliverPendingTicks() {
    if (ticksKept_ == 0) return;
    ticksKept_ = 0;
    std::vector<int> due;
    for (auto& [id, slot] : timers_)
      if (slot.pending && slot.enabled) due.push_back(id);
    for (int id : due) {
      auto found = timers_.find(id);
      if (found == timers_.end() || !found->second.pending || !found->second.enabled) continue;
      found->second.pending = false;
      found->second.owner->OnTimer();
    }
  }

  // The bar moves of the pulses the engine took without a call.
  void TakeQuietPulses() {
    platform::QuietPulses& pulses = platform::Services().pulses;
    if (pulses.taken == 0) return;
    pulses.taken = 0;
    progress_.barMovePending = true;
    progress_.pendingValue = pulses.value;
  }

  void ApplyPendingBarMove() {
    TakeQuietPulses();
    if (!progress_.barMovePending) return;
    progress_.barMovePending = false;
    if (progress_.bar)
      User().SendMessageA(progress_.bar, PBM_SETPOS, static_cast<WPARAM>(progress_.pendingValue),
                          0);
  }

  int pumpDepth_ = 0;
  DWORD lastPaint_ = 0;
  DWORD lastLook_ = 0;
  bool paintAsked_ = false;
  int ticksKept_ = 0;  // ticks that arrived outside the pump
  unsigned long activity_ = 1;        // calls through the boundary, pumps aside
  unsigned long activityAtPump_ = 0;  // activity_ when the last pump began
  int nextTimer_ = 1;
  std::map<int, TimerSlot> timers_;
  ProgressWindow progress_;
  HWND eventWindow_ = nullptr;
  bool eventWindowFailed_ = false;
};

LRESULT CALLBACK EventWindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message == WM_TIMER && gInterface) {
    gInterface->TimerTick(wParam);
    return 0;
  }
  if (message == kSocketMessage && gInterface) {
    gInterface->SocketMessage(wParam, lParam);
    return 0;
  }
  return User().DefWindowProcA(window, message, wParam, lParam);
}

LRESULT CALLBACK ProgressWindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message == WM_DESTROY && gInterface) gInterface->ProgressWindowDestroyed(window);
  return User().DefWindowProcA(window, message, wParam, lParam);
}

NativeUserInterface& Interface() {
  static NativeUserInterface service;
  return service;
}

}  // namespace

HWND MessageWindow() { return Interface().EventWindow(); }

void NoteActivity() { Interface().NoteActivity(); }

UserInterface& UserInterfaceService() { return Interface(); }

}  // namespace platform::native
