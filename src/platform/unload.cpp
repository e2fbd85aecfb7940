// The memory that the C++ library sets aside for exceptions thrown without any, some 19 KiB, is not given back when a DLL is freed.
// It goes here, after everything else of the image has ended.

namespace __gnu_cxx {
void __freeres();
}

namespace {

struct GiveBack {
  ~GiveBack() { __gnu_cxx::__freeres(); }
};

constexpr int kFirst = 101;  // the lowest priority that the compiler leaves to programs: made first, ended last
[[gnu::init_priority(kFirst)]] GiveBack give_back;

}  // namespace
