#include "host/access/auth.h"

#include <grp.h>
#include <pwd.h>
#include <security/pam_appl.h>
#include <shadow.h>
#include <sys/inotify.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "host/common/host_log.h"

namespace qrix::host {
namespace {

struct Credentials {
  const std::string* account;
  const std::string* password;
};

// PAM asks; we answer the password to hidden prompts and the account name to visible ones.
// PAM frees what we hand it, so it is allocated with malloc.
int Converse(int count, const pam_message** messages, pam_response** responses, void* data) {
  if (count <= 0 || count > PAM_MAX_NUM_MSG) {
    return PAM_CONV_ERR;
  }
  const auto* credentials = static_cast<const Credentials*>(data);
  auto* replies =
      static_cast<pam_response*>(std::calloc(static_cast<size_t>(count), sizeof(pam_response)));
  if (replies == nullptr) {
    return PAM_BUF_ERR;
  }
  for (int i = 0; i < count; ++i) {
    const char* answer = nullptr;
    switch (messages[i]->msg_style) {
      case PAM_PROMPT_ECHO_OFF:
        answer = credentials->password->c_str();
        break;
      case PAM_PROMPT_ECHO_ON:
        answer = credentials->account->c_str();
        break;
      default:
        continue;  // information and error texts need no answer
    }
    replies[i].resp = ::strdup(answer);
    if (replies[i].resp == nullptr) {
      for (int j = 0; j < i; ++j) {
        std::free(replies[j].resp);
      }
      std::free(replies);
      return PAM_BUF_ERR;
    }
  }
  *responses = replies;
  return PAM_SUCCESS;
}

// One PAM transaction, ended with the status of its last step.
class PamTransaction {
 public:
  PamTransaction(const std::string& account, Credentials* credentials)
      : conversation_{Converse, credentials} {
    status_ = ::pam_start(kPamService, account.c_str(), &conversation_, &handle_);
  }
  PamTransaction(const PamTransaction&) = delete;
  PamTransaction& operator=(const PamTransaction&) = delete;
  ~PamTransaction() {
    if (handle_ != nullptr) {
      ::pam_end(handle_, status_);
    }
  }
  bool Started() const { return status_ == PAM_SUCCESS; }
  bool SetClient(const std::string& client) {
    return (status_ = ::pam_set_item(handle_, PAM_RHOST, client.c_str())) == PAM_SUCCESS;
  }
  int Authenticate() { return status_ = ::pam_authenticate(handle_, PAM_DISALLOW_NULL_AUTHTOK); }
  int CheckAccount() { return status_ = ::pam_acct_mgmt(handle_, PAM_DISALLOW_NULL_AUTHTOK); }
  const char* Describe(int status) const { return ::pam_strerror(handle_, status); }
  int Status() const { return status_; }

 private:
  pam_conv conversation_;
  pam_handle_t* handle_ = nullptr;
  int status_ = PAM_SUCCESS;
};

size_t BufferSize(int name) {
  const long size = ::sysconf(name);
  return size > 0 ? static_cast<size_t>(size) : 16384;
}

constexpr long kSecondsPerDay = 24 * 3600;

// Why the password entry (shadow, or passwd where there is none) keeps the account from
// logging in on `today` (days since 1970, as the shadow file counts), or null when it does not.
// The same rules as PAM's at login, so that an open session ends when a new login would fail.
const char* ShadowRefusal(const std::string& user, const passwd& pw, long today) {
  std::vector<char> buffer(BufferSize(_SC_GETPW_R_SIZE_MAX));
  spwd sp{};
  spwd* found = nullptr;
  int err;
  while ((err = ::getspnam_r(user.c_str(), &sp, buffer.data(), buffer.size(), &found)) == ERANGE) {
    buffer.resize(buffer.size() * 2);
  }
  if (found == nullptr && err != 0 && err != ENOENT) {
    return "cannot read the shadow entry";
  }
  const char* hash = found != nullptr ? sp.sp_pwdp : pw.pw_passwd;
  if (hash == nullptr || hash[0] == '\0' || hash[0] == '!' || hash[0] == '*') {
    return "password locked";
  }
  if (found == nullptr) {
    return nullptr;  // no shadow entry: no ageing either
  }
  if (sp.sp_expire >= 0 && today >= sp.sp_expire) {
    return "account expired";
  }
  if (sp.sp_lstchg == 0) {
    return "password must be changed";
  }
  if (sp.sp_lstchg > 0 && sp.sp_max >= 0 && today - sp.sp_lstchg > sp.sp_max) {
    return "password expired";
  }
  return nullptr;
}

}  // namespace

PasswordCheck CheckPassword(const std::string& account, const std::string& password,
                            const std::string& client) {
  // C strings end at a NUL: an account or password holding one is not the one given.
  if (account.empty() || account.find('\0') != std::string::npos ||
      password.find('\0') != std::string::npos) {
    return PasswordCheck::kWrong;
  }
  Credentials credentials{&account, &password};
  PamTransaction pam(account, &credentials);
  if (!pam.Started() || !pam.SetClient(client)) {
    LogFailure("cannot start PAM service", kPamService, pam.Describe(pam.Status()));
    return PasswordCheck::kFailed;
  }
  const int auth = pam.Authenticate();
  switch (auth) {
    case PAM_SUCCESS:
      break;
    case PAM_AUTH_ERR:
    case PAM_USER_UNKNOWN:
    case PAM_CRED_INSUFFICIENT:
    case PAM_MAXTRIES:
      return PasswordCheck::kWrong;
    default:
      LogFailure("PAM authentication failed for account", Printable(account), pam.Describe(auth));
      return PasswordCheck::kFailed;
  }
  const int acct = pam.CheckAccount();
  if (acct != PAM_SUCCESS) {
    LogFailure("PAM refused account", Printable(account), pam.Describe(acct));
    return PasswordCheck::kAccountRefused;
  }
  return PasswordCheck::kAccepted;
}

std::optional<Account> LookupAccount(const std::string& user) {
  std::vector<char> buffer(BufferSize(_SC_GETPW_R_SIZE_MAX));
  passwd pw{};
  passwd* found = nullptr;
  int err;
  while ((err = ::getpwnam_r(user.c_str(), &pw, buffer.data(), buffer.size(), &found)) == ERANGE) {
    buffer.resize(buffer.size() * 2);
  }
  if (found == nullptr) {
    LogFailure("cannot find account", Printable(user),
               err != 0 ? std::strerror(err) : "no such account");
    return std::nullopt;
  }
  if (const char* refusal = ShadowRefusal(user, pw, ::time(nullptr) / kSecondsPerDay)) {
    LogFailure("login no longer allowed for account", Printable(user), refusal);
    return std::nullopt;
  }
  Account account{user, pw.pw_uid, false};
  const gid_t primary = pw.pw_gid;

  std::vector<char> group_buffer(BufferSize(_SC_GETGR_R_SIZE_MAX));
  group gr{};
  group* admin_group = nullptr;
  while ((err = ::getgrnam_r(kAdminGroup, &gr, group_buffer.data(), group_buffer.size(),
                             &admin_group)) == ERANGE) {
    group_buffer.resize(group_buffer.size() * 2);
  }
  if (admin_group == nullptr) {
    return account;  // no such group: nobody administers
  }
  const gid_t admin_gid = gr.gr_gid;
  std::vector<gid_t> groups(32);
  int count = static_cast<int>(groups.size());
  while (::getgrouplist(user.c_str(), primary, groups.data(), &count) < 0) {
    groups.resize(static_cast<size_t>(count) > groups.size() ? static_cast<size_t>(count)
                                                             : groups.size() * 2);
    count = static_cast<int>(groups.size());
  }
  groups.resize(static_cast<size_t>(count));
  account.admin = std::find(groups.begin(), groups.end(), admin_gid) != groups.end();
  return account;
}

bool AccountCache::Stamp::operator==(const Stamp& o) const {
  return device == o.device && inode == o.inode && size == o.size &&
         modified.tv_sec == o.modified.tv_sec && modified.tv_nsec == o.modified.tv_nsec &&
         changed.tv_sec == o.changed.tv_sec && changed.tv_nsec == o.changed.tv_nsec;
}

bool AccountCache::Unchanged() {
  bool changed = false;
  const bool looked = watch_.Drain([this, &changed](int watch, std::string_view name) {
    // Of what happens in /etc, only what happens to these three names counts.
    changed = changed || watch != etc_watch_ || name.empty() ||
              std::any_of(kFiles.begin(), kFiles.end(),
                          [name](const char* file) { return name == file + std::strlen("/etc/"); });
  });
  return etc_watch_ >= 0 && looked && !changed;
}

bool AccountCache::Watch() {
  constexpr uint32_t kFileEvents = IN_MODIFY | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF;
  constexpr uint32_t kDirEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_ONLYDIR;
  if (can_watch_) {
    etc_watch_ = watch_.Add("/etc", kDirEvents);
    can_watch_ = etc_watch_ >= 0 &&
                 std::all_of(kFiles.begin(), kFiles.end(),
                             [this](const char* f) { return watch_.Add(f, kFileEvents) >= 0; });
  }
  if (!can_watch_) {
    watch_.Close();  // out of watches, or a file missing: stamps from now on
    etc_watch_ = -1;
  }
  return can_watch_;
}

std::optional<Account> AccountCache::Lookup(const std::string& user) {
  const time_t now = ::time(nullptr);
  const long day = now / kSecondsPerDay;
  bool settled = true;
  if (!Unchanged()) {
    const bool reported = etc_watch_ >= 0;
    // Watch first: a change after this point is reported even if it races the reads below.
    const bool watched = Watch();
    if (watched || reported) {
      accounts_.clear();
    }
    if (!watched) {
      settled = Restamp(now);
    }
  }
  if (day != day_) {
    accounts_.clear();
    day_ = day;
  }
  if (const auto known = accounts_.find(user); known != accounts_.end()) {
    return known->second;
  }
  std::optional<Account> account = LookupAccount(user);
  // A refusal is not kept: it may come of a passing failure to read the files, and a refused
  // account's requests are few.
  if (settled && account) {
    accounts_.emplace(user, account);
  }
  return account;
}

bool AccountCache::Restamp(time_t now) {
  // File times tick coarsely: a file changed within this many seconds could change again
  // without its stamp showing it, so what is read from it then is not kept.
  constexpr time_t kSettleSeconds = 2;
  std::array<Stamp, kFiles.size()> stamps{};
  bool settled = true;
  for (size_t i = 0; i < kFiles.size(); ++i) {
    struct stat st {};
    if (::stat(kFiles[i], &st) == 0) {
      stamps[i] = Stamp{st.st_dev, st.st_ino, st.st_size, st.st_mtim, st.st_ctim};
      settled = settled && now - st.st_mtim.tv_sec >= kSettleSeconds &&
                now - st.st_ctim.tv_sec >= kSettleSeconds;
    }
  }
  if (!(stamps == stamps_)) {
    accounts_.clear();
    stamps_ = stamps;
  }
  return settled;
}

}  // namespace qrix::host
