// Compiled with clang's -Wthread-safety -Werror, never linked: clean as it stands, and each
// VIOLATION_* macro adds one mistake the analysis must reject.
#include "base/synchronization/condition_variable.h"
#include "base/synchronization/lock.h"

namespace {

class Account {
  public:
    void deposit(int n) EXCLUDES(mLock) {
        base::AutoLock hold(mLock);
        addLocked(n);
        mChanged.Broadcast();
    }
    void waitForFunds() EXCLUDES(mLock) {
        base::AutoLock hold(mLock);
        while (mBalance <= 0) mChanged.Wait();
        {
            base::AutoUnlock release(mLock);
            notifyOutside();
        }
        mBalance -= 1;
    }
    int balance() const EXCLUDES(mLock) {
        base::AutoLock hold(mLock);
        return mBalance;
    }

#if defined(VIOLATION_UNGUARDED_WRITE)
    void reset() { mBalance = 0; }
#endif
#if defined(VIOLATION_LOCKED_CALL_WITHOUT_LOCK)
    void addTwice(int n) {
        addLocked(n);
        addLocked(n);
    }
#endif
#if defined(VIOLATION_CALL_WHILE_HELD)
    void depositAgain(int n) {
        base::AutoLock hold(mLock);
        deposit(n);
    }
#endif
#if defined(VIOLATION_WRITE_WHILE_UNLOCKED)
    void drain() {
        base::AutoLock hold(mLock);
        base::AutoUnlock release(mLock);
        mBalance = 0;
    }
#endif

  private:
    void addLocked(int n) REQUIRES(mLock) { mBalance += n; }
    void notifyOutside() EXCLUDES(mLock) {}

    mutable base::Lock mLock;
    base::ConditionVariable mChanged{&mLock};
    int mBalance GUARDED_BY(mLock) = 0;
};

}  // namespace

int useAccount() {
    Account account;
    account.deposit(1);
    account.waitForFunds();
    return account.balance();
}
