// An application with a window that asks the user for a proxy's credentials while its message loop goes on: the session
// wakes the loop with a message, the challenge waits in the session's queue, and the user may take any time to answer.
// The dialog closes by itself if an answer is no longer wanted.
//
//   session_dialog URL [USER PASSWORD]
//
// With a user name and a password it fills in the dialog itself, as the user would.
#include <windows.h>

#include <array>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kiv/session.h"

namespace {

constexpr UINT kWoken = WM_APP;
constexpr UINT_PTR kTimer = 1;
constexpr UINT kTick = 50;  // milliseconds
constexpr int kTicksBeforeTyping = 10;
constexpr WORD kRealm = 100;
constexpr WORD kUser = 101;
constexpr WORD kPassword = 102;

struct Release {
  void operator()(KivSession* session) const { KivSession_Destruct(session); }
  void operator()(KivDecision* decision) const { KivDecision_Release(decision); }
  void operator()(KivEvent* event) const { KivEvent_Release(event); }
  void operator()(KivChallenge* challenge) const { KivChallenge_Release(challenge); }
};
using Challenge = std::unique_ptr<KivChallenge, Release>;

// A dialog's template, made in memory so that the example needs no resource file.
class Template {
 public:
  Template(const wchar_t* title, short width, short height) {
    put(DS_CENTER | DS_SETFONT | WS_POPUP | WS_CAPTION | WS_SYSMENU | WS_VISIBLE, 0, 0, 0, 0, width, height);
    put_text(L"");  // no menu
    put_text(L"");  // the system's class of dialogs
    put_text(title);
    put_word(8);
    put_text(L"MS Shell Dlg");
  }

  void add(WORD system_class, DWORD style, WORD id, const wchar_t* text, short x, short y, short width, short height) {
    if (words_.size() % 2 != 0) put_word(0);
    // Style, extended style, place, size, id.
    put_item(style | WS_CHILD | WS_VISIBLE, x, y, width, height, id);
    put_word(0xFFFF);
    put_word(system_class);
    put_text(text);
    put_word(0);
    ++words_[4];  // the number of controls, after the two styles
  }

  const DLGTEMPLATE* get() const { return reinterpret_cast<const DLGTEMPLATE*>(words_.data()); }

 private:
  void put_word(WORD word) { words_.push_back(word); }
  void put_dword(DWORD word) {
    put_word(LOWORD(word));
    put_word(HIWORD(word));
  }
  void put_text(std::wstring_view text) {
    for (const wchar_t character : text) put_word(static_cast<WORD>(character));
    put_word(0);
  }
  void put(DWORD style, DWORD extended, WORD items, short x, short y, short width, short height) {
    put_dword(style);
    put_dword(extended);
    for (const short word : {static_cast<short>(items), x, y, width, height}) put_word(static_cast<WORD>(word));
  }
  void put_item(DWORD style, short x, short y, short width, short height, WORD id) {
    put_dword(style);
    put_dword(0);
    for (const short word : {x, y, width, height}) put_word(static_cast<WORD>(word));
    put_word(id);
  }

  std::vector<WORD> words_;
};

class Application {
 public:
  Application(std::wstring user, std::wstring password) : user_(std::move(user)), password_(std::move(password)) {}

  // The exit code.
  int run(const wchar_t* url) {
    window_ = create_window();
    if (!window_ || !begin(url)) return 1;
    SetTimer(window_, kTimer, kTick, nullptr);
    MSG message;
    while (GetMessageW(&message, nullptr, 0, 0) > 0) {
      if (dialog_ && IsDialogMessageW(dialog_, &message)) continue;
      TranslateMessage(&message);
      DispatchMessageW(&message);
    }
    return exit_code_;
  }

 private:
  // A message-only window, in place of the application's own.
  HWND create_window() {
    WNDCLASSW description = {};
    description.lpfnWndProc = on_message;
    description.hInstance = GetModuleHandleW(nullptr);
    description.lpszClassName = L"kiv example";
    RegisterClassW(&description);
    return CreateWindowExW(0, description.lpszClassName, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                           description.hInstance, this);
  }

  bool begin(const wchar_t* url) {
    KivSession* session = nullptr;
    if (KivSession_Create(L"example", &session) != KIV_STATUS_OK) return false;
    session_.reset(session);
    KivSession_SetWake(session, post_message, window_);
    return KivSession_Start(session, url, KIV_NO_TIME_OUT, 0, nullptr, nullptr) == KIV_STATUS_OK;
  }

  // On a thread of the system's pool: it neither blocks nor calls the session.
  static void post_message(void* window) { PostMessageW(static_cast<HWND>(window), kWoken, 0, 0); }

  static LRESULT CALLBACK on_message(HWND window, UINT message, WPARAM first, LPARAM second) {
    if (message == WM_NCCREATE) {
      SetWindowLongPtrW(window, GWLP_USERDATA,
                        reinterpret_cast<LONG_PTR>(reinterpret_cast<CREATESTRUCTW*>(second)->lpCreateParams));
    }
    auto* self = reinterpret_cast<Application*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    if (self && message == kWoken) self->read_events();
    if (self && message == WM_TIMER) self->tick();
    return DefWindowProcW(window, message, first, second);
  }

  void read_events() {
    KivEvent* event = nullptr;
    while (KivSession_Next(session_.get(), 0, &event) == KIV_STATUS_OK) {
      const std::unique_ptr<KivEvent, Release> owner(event);
      switch (KivEvent_Kind(event)) {
        case KIV_EVENT_CHALLENGE:
          ask(Challenge(KivEvent_Challenge(event)));
          break;
        case KIV_EVENT_WITHDRAWN:
          close_dialog();
          break;
        case KIV_EVENT_COMPLETED:
          end(event);
          break;
        default:
          break;
      }
    }
  }

  void ask(Challenge challenge) {
    constexpr WORD kButton = 0x0080;
    constexpr WORD kEdit = 0x0081;
    constexpr WORD kStatic = 0x0082;
    challenge_ = std::move(challenge);
    ticks_ = 0;
    // The realm is the proxy's own text, and shown as such.
    const std::wstring said = std::wstring(L"It says: ") + KivChallenge_Realm(challenge_.get());
    Template dialog(KivChallenge_Proxy(challenge_.get()), 200, 92);
    dialog.add(kStatic, SS_NOPREFIX, kRealm, said.c_str(), 7, 7, 186, 10);
    dialog.add(kStatic, 0, 0xFFFF, L"User name", 7, 25, 50, 10);
    dialog.add(kEdit, WS_BORDER | WS_TABSTOP | ES_AUTOHSCROLL, kUser, L"", 60, 23, 133, 12);
    dialog.add(kStatic, 0, 0xFFFF, L"Password", 7, 43, 50, 10);
    dialog.add(kEdit, WS_BORDER | WS_TABSTOP | ES_AUTOHSCROLL | ES_PASSWORD, kPassword, L"", 60, 41, 133, 12);
    dialog.add(kButton, BS_DEFPUSHBUTTON | WS_TABSTOP, IDOK, L"OK", 88, 70, 50, 14);
    dialog.add(kButton, BS_PUSHBUTTON | WS_TABSTOP, IDCANCEL, L"Cancel", 143, 70, 50, 14);
    dialog_ = CreateDialogIndirectParamW(GetModuleHandleW(nullptr), dialog.get(), nullptr, on_dialog,
                                         reinterpret_cast<LPARAM>(this));
    if (!dialog_) challenge_.reset();  // declines
  }

  static INT_PTR CALLBACK on_dialog(HWND dialog, UINT message, WPARAM first, LPARAM second) {
    if (message == WM_INITDIALOG) SetWindowLongPtrW(dialog, DWLP_USER, second);
    auto* self = reinterpret_cast<Application*>(GetWindowLongPtrW(dialog, DWLP_USER));
    if (message == WM_COMMAND && (LOWORD(first) == IDOK || LOWORD(first) == IDCANCEL)) {
      self->answer(LOWORD(first) == IDOK);
      return TRUE;
    }
    return message == WM_INITDIALOG;
  }

  void answer(bool accepted) {
    std::array<wchar_t, 256> user = {};
    std::array<wchar_t, 256> password = {};
    if (accepted) {
      GetDlgItemTextW(dialog_, kUser, user.data(), static_cast<int>(user.size()));
      GetDlgItemTextW(dialog_, kPassword, password.data(), static_cast<int>(password.size()));
      KivChallenge_Answer(challenge_.get(), user.data(), password.data());
      SecureZeroMemory(password.data(), sizeof password);
    }
    std::wprintf(L"the loop went on while the dialog was open: %ls\n", ticks_ > 1 ? L"yes" : L"no");
    close_dialog();
  }

  void close_dialog() {
    if (dialog_) DestroyWindow(dialog_);
    dialog_ = nullptr;
    challenge_.reset();  // declines unless it was answered
  }

  // Shows that the loop goes on, and types for the user.
  void tick() {
    if (!dialog_ || ++ticks_ != kTicksBeforeTyping || user_.empty()) return;
    SetDlgItemTextW(dialog_, kUser, user_.c_str());
    SetDlgItemTextW(dialog_, kPassword, password_.c_str());
    PostMessageW(dialog_, WM_COMMAND, IDOK, 0);
  }

  void end(KivEvent* event) {
    const std::unique_ptr<KivDecision, Release> decision(KivEvent_Decision(event));
    const DWORD kind = KivDecision_Kind(decision.get());
    if (kind == KIV_KIND_NONE) {
      std::fwprintf(stderr, L"%ls\n",
                    KivStatus_Text(decision ? KivDecision_Reason(decision.get()) : KivEvent_Status(event)));
    } else {
      std::wprintf(L"%ls\n", kind == KIV_KIND_PROXY ? KivDecision_ProxyUrl(decision.get()) : L"DIRECT");
    }
    exit_code_ = kind == KIV_KIND_NONE ? 2 : 0;
    PostQuitMessage(0);
  }

  std::wstring user_;
  std::wstring password_;
  HWND window_ = nullptr;
  HWND dialog_ = nullptr;
  std::unique_ptr<KivSession, Release> session_;
  Challenge challenge_;
  int ticks_ = 0;
  int exit_code_ = 1;
};

}  // namespace

int wmain(int count, wchar_t** arguments) {
  if (count != 2 && count != 4) {
    std::fwprintf(stderr, L"usage: session_dialog URL [USER PASSWORD]\n");
    return 64;
  }
  Application application(count == 4 ? arguments[2] : L"", count == 4 ? arguments[3] : L"");
  return application.run(arguments[1]);
}
