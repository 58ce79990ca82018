// The message classes against Protocol Buffers on the same data.
//
// Each workload is one generic message tree, built from the dictionary with
// deterministic values; our object is loaded from it, and the protobuf
// message is filled from it field by field through reflection, so that both
// sides hold the same values. Every operation is timed on both sides in the
// same run, and the program ends with the ratios.
#include <benchmark/benchmark.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "MsgText.h"
#include "Reflect.h"
#include "SchemaTables.h"
#include "TestSupport.h"
#include "callkyt/CStream.h"
#include "equity.pb.h"
#include "equity/M_EqCmb.h"
#include "rates.pb.h"
#include "rates/M_IrNoteFlterHwMc.h"
#include "shared.pb.h"
#include "shared/M_KytRateCurveB.h"
#include "shared/M_SysReject.h"

namespace pb = google::protobuf;
using testing_support::MsgPtr;

namespace {

// Sets the fields of `out` from the values of `msg`, by tag.
void FillProto(const CMsg& msg, pb::Message& out) {
  const pb::Descriptor* d = out.GetDescriptor();
  const pb::Reflection* r = out.GetReflection();
  CMsg::Cursor cur(msg);
  CMsg::Value v;
  while (cur.Next(&v)) {
    const pb::FieldDescriptor* f = d->FindFieldByNumber(v.tag);
    if (!f) std::abort();
    bool many = f->is_repeated();
    if (!v.isSet && v.kind != KytKind::kStr && v.kind != KytKind::kMsg) continue;
    switch (f->cpp_type()) {
      case pb::FieldDescriptor::CPPTYPE_INT32:
        many ? r->AddInt32(&out, f, v.i) : r->SetInt32(&out, f, v.i);
        break;
      case pb::FieldDescriptor::CPPTYPE_DOUBLE:
        many ? r->AddDouble(&out, f, v.d) : r->SetDouble(&out, f, v.d);
        break;
      case pb::FieldDescriptor::CPPTYPE_BOOL:
        r->SetBool(&out, f, v.b);
        break;
      case pb::FieldDescriptor::CPPTYPE_STRING:
        r->SetString(&out, f, std::string(v.text, static_cast<size_t>(v.len)));
        break;
      case pb::FieldDescriptor::CPPTYPE_MESSAGE:
        FillProto(*v.msg, many ? *r->AddMessage(&out, f) : *r->MutableMessage(&out, f));
        break;
      default:
        std::abort();
    }
  }
}

// Messages in a protobuf tree, counted as CMsg::GetTreeSize counts.
int CountProto(const pb::Message& m) {
  int n = 1;
  std::vector<const pb::FieldDescriptor*> fields;
  m.GetReflection()->ListFields(m, &fields);
  for (const pb::FieldDescriptor* f : fields) {
    if (f->cpp_type() != pb::FieldDescriptor::CPPTYPE_MESSAGE) continue;
    if (f->is_repeated()) {
      for (int i = 0; i < m.GetReflection()->FieldSize(m, f); ++i) {
        n += CountProto(m.GetReflection()->GetRepeatedMessage(m, f, i));
      }
    } else {
      n += CountProto(m.GetReflection()->GetMessage(m, f));
    }
  }
  return n;
}

template <class T, class P>
struct Workload {
  const char* name;
  MsgPtr sample;
  T obj;
  P proto;
  int messages = 0;

  Workload(const char* n, int number, const testing_support::SampleShape& shape) : name(n) {
    sample = testing_support::BuildSample(number, shape);
    if (obj.Load(sample.get()) != 0) std::abort();
    FillProto(*sample, proto);
    messages = sample->GetTreeSize();
    if (CountProto(proto) != messages) std::abort();
  }
};

void PerMessage(benchmark::State& state, int messages) {
  state.counters["msgs"] = messages;
  state.counters["ns/msg"] =
      benchmark::Counter(static_cast<double>(messages) * static_cast<double>(state.iterations()),
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// ---- the runtime's floor ----
//
// The least a Load or a ToMsg of an object can cost is the runtime calls
// that it must make, as the classes make them: for ToMsg a new message for
// the object and every message it holds, and one SetValue for every value,
// element and sub-message; for Load one GetValue for every field of every
// message, and a CMsgArray's GetSize and GetAt for repeated messages. A plan
// recorded from the object (through the reflection) replays those calls and
// nothing else, into values kept in the plan, so that the library's time
// can be told as a multiple of them.

struct Plan {
  int msgnum = 0;
  // One step a field, in tag order.
  struct Step {
    int tag;
    pricemsg::schema::Kind kind;
    CInt i;
    CDbl d;
    CBool b;
    CDate n;
    std::string s;
    std::vector<int> ia;
    std::vector<double> da;
    std::vector<Plan> subs;  // one for a message, one per element for a repeated one
  };
  std::vector<Step> steps;
};

Plan Record(const CMsgBase& obj) {
  Plan plan;
  plan.msgnum = obj.msgnum;
  pricemsg::ForEachField(obj, [&](const pricemsg::schema::FieldInfo& f, const auto& member) {
    using M = std::decay_t<decltype(member)>;
    Plan::Step step{f.tag, f.kind, {}, {}, {}, {}, {}, {}, {}, {}};
    if constexpr (std::is_same_v<M, CMsgBase>) {
      step.subs.push_back(Record(member));
    } else if constexpr (std::is_same_v<M, CMsgBase_Array>) {
      for (int i = 0; i < member.GetSize(); ++i) step.subs.push_back(Record(member[i]));
    } else if constexpr (std::is_same_v<M, CInt>) {
      step.i = member;
    } else if constexpr (std::is_same_v<M, CDbl>) {
      step.d = member;
    } else if constexpr (std::is_same_v<M, CBool>) {
      step.b = member;
    } else if constexpr (std::is_same_v<M, CDate>) {
      step.n = member;
    } else if constexpr (std::is_same_v<M, CString>) {
      step.s = member.ToStr();
    } else if constexpr (std::is_same_v<M, CIntArray>) {
      for (int i = 0; i < member.size; ++i) step.ia.push_back(member.GetAt(i));
    } else {
      for (int i = 0; i < member.size; ++i) step.da.push_back(member.GetAt(i));
    }
    plan.steps.push_back(std::move(step));
  });
  return plan;
}

// The calls of ToMsg: a new message, then each value in turn.
CMsg* MakeFloor(const Plan& plan, CMsgDic* dic) {
  using K = pricemsg::schema::Kind;
  CMsg* msg = new CMsg(plan.msgnum, 0, 0, dic);
  for (const Plan::Step& s : plan.steps) {
    switch (s.kind) {
      case K::kInt:
        msg->SetValue(s.tag, s.i);
        break;
      case K::kDbl:
        msg->SetValue(s.tag, s.d);
        break;
      case K::kBool:
        msg->SetValue(s.tag, s.b);
        break;
      case K::kDate:
        msg->SetValue(s.tag, s.n);
        break;
      case K::kString:
        msg->SetValue(s.tag, s.s.c_str());
        break;
      case K::kIntArray:
        for (int v : s.ia) msg->SetValue(s.tag, v);
        break;
      case K::kDblArray:
        for (double v : s.da) msg->SetValue(s.tag, v);
        break;
      default:
        for (const Plan& sub : s.subs) msg->SetValue(s.tag, MakeFloor(sub, MA_GetMsgDic()));
        break;
    }
  }
  return msg;
}

// The calls of Load: a GetValue for each field, into values that are used
// again and again as an object's members are.
struct Scratch {
  CInt i;
  CDbl d;
  CBool b;
  CDate n;
  CString s;
  CIntArray ia;
  CDblArray da;
};

void ReadFloor(const Plan& plan, CMsg* msg, Scratch& x) {
  using K = pricemsg::schema::Kind;
  for (const Plan::Step& s : plan.steps) {
    switch (s.kind) {
      case K::kInt:
        msg->GetValue(s.tag, &x.i);
        break;
      case K::kDbl:
        msg->GetValue(s.tag, &x.d);
        break;
      case K::kBool:
        msg->GetValue(s.tag, &x.b);
        break;
      case K::kDate:
        msg->GetValue(s.tag, &x.n);
        break;
      case K::kString:
        msg->GetValue(s.tag, &x.s);
        break;
      case K::kIntArray:
        msg->GetValue(s.tag, &x.ia);
        break;
      case K::kDblArray:
        msg->GetValue(s.tag, &x.da);
        break;
      case K::kMessage: {
        CMsg* sub = nullptr;
        if (msg->GetValue(s.tag, &sub) >= 0 && sub) ReadFloor(s.subs[0], sub, x);
        break;
      }
      case K::kMessageArray: {
        CMsgArray subs(true);
        if (msg->GetValue(s.tag, &subs) < 0) break;
        for (int i = 0, n = subs.GetSize(); i < n; ++i) ReadFloor(s.subs[i], subs.GetAt(i), x);
        break;
      }
    }
  }
}

// Visits every field of an object and of everything it holds, counting the
// values; `last` gets the path of the last value field.
int VisitAll(const CMsgBase& obj, const std::string& prefix, std::string* last) {
  int values = 0;
  pricemsg::ForEachField(obj, [&](const pricemsg::schema::FieldInfo& f, const auto& member) {
    using M = std::decay_t<decltype(member)>;
    if constexpr (std::is_same_v<M, CMsgBase>) {
      values += VisitAll(member, last ? prefix + f.name + "." : prefix, last);
    } else if constexpr (std::is_same_v<M, CMsgBase_Array>) {
      for (int i = 0; i < member.GetSize(); ++i) {
        values += VisitAll(member[i],
                           last ? prefix + f.name + "[" + std::to_string(i) + "]." : prefix, last);
      }
    } else {
      ++values;
      if (last) *last = prefix + f.name;
    }
  });
  return values;
}

// The reflection on the workload: a visit of every field (against Dump,
// which walks the same fields and writes them), the deepest value read and
// set by its path, and equality and differences of two copies.
template <class W>
void RegisterReflection(W& w) {
  std::string n = w.name;
  std::string* path = new std::string;  // lives as long as the benchmarks
  VisitAll(w.obj, "", path);
  benchmark::RegisterBenchmark((n + "/ours/Visit").c_str(), [&w](benchmark::State& st) {
    for (auto _ : st) benchmark::DoNotOptimize(VisitAll(w.obj, "", nullptr));
    PerMessage(st, w.messages);
  });
  benchmark::RegisterBenchmark((n + "/ours/GetByPath").c_str(), [&w, path](benchmark::State& st) {
    pricemsg::Value v;
    for (auto _ : st) {
      if (pricemsg::Get(w.obj, *path, &v) != 0) std::abort();
    }
    st.SetLabel(*path);
  });
  benchmark::RegisterBenchmark((n + "/ours/SetByPath").c_str(), [&w, path](benchmark::State& st) {
    decltype(w.obj) target;
    target.Copy(w.obj);
    pricemsg::Value v;
    if (pricemsg::Get(w.obj, *path, &v) != 0) std::abort();
    for (auto _ : st) {
      if (pricemsg::Set(target, *path, v) != 0) std::abort();
    }
  });
  benchmark::RegisterBenchmark((n + "/ours/Equal").c_str(), [&w](benchmark::State& st) {
    decltype(w.obj) other;
    other.Copy(w.obj);
    for (auto _ : st) {
      if (!pricemsg::Equal(w.obj, other)) std::abort();
    }
    PerMessage(st, w.messages);
  });
  benchmark::RegisterBenchmark((n + "/ours/Diff").c_str(), [&w, path](benchmark::State& st) {
    decltype(w.obj) other;
    other.Copy(w.obj);
    if (pricemsg::Set(other, *path, pricemsg::Value()) != 0) std::abort();
    std::vector<pricemsg::Difference> d;
    for (auto _ : st) {
      d.clear();
      if (pricemsg::Diff(w.obj, other, &d) != 0 || d.size() != 1) std::abort();
    }
    PerMessage(st, w.messages);
  });
}

template <class W>
void Register(W& w) {
  std::string n = w.name;
  // The floor of each: the runtime calls alone.
  const Plan* plan = new Plan(Record(w.obj));  // lives as long as the benchmarks
  benchmark::RegisterBenchmark((n + "/floor/ToMsg").c_str(), [&w, plan](benchmark::State& st) {
    for (auto _ : st) MsgPtr m(MakeFloor(*plan, MA_GetMsgDic()));
    PerMessage(st, w.messages);
  });
  benchmark::RegisterBenchmark((n + "/floor/Load").c_str(), [&w, plan](benchmark::State& st) {
    MsgPtr m(w.obj.ToMsg());
    Scratch x;
    for (auto _ : st) ReadFloor(*plan, m.get(), x);
    PerMessage(st, w.messages);
  });
  // Writing the message.
  benchmark::RegisterBenchmark((n + "/ours/ToMsg").c_str(), [&w](benchmark::State& st) {
    for (auto _ : st) MsgPtr m(w.obj.ToMsg());
    PerMessage(st, w.messages);
  });
  benchmark::RegisterBenchmark((n + "/protobuf/Serialize").c_str(), [&w](benchmark::State& st) {
    std::string out;
    for (auto _ : st) w.proto.SerializeToString(&out);
    PerMessage(st, w.messages);
  });
  // Reading it into an object that is used again and again.
  benchmark::RegisterBenchmark((n + "/ours/Load").c_str(), [&w](benchmark::State& st) {
    MsgPtr m(w.obj.ToMsg());
    decltype(w.obj) target;
    for (auto _ : st) benchmark::DoNotOptimize(target.Load(m.get()));
    PerMessage(st, w.messages);
  });
  benchmark::RegisterBenchmark((n + "/protobuf/Parse").c_str(), [&w](benchmark::State& st) {
    std::string wire = w.proto.SerializeAsString();
    decltype(w.proto) target;
    for (auto _ : st) benchmark::DoNotOptimize(target.ParseFromString(wire));
    PerMessage(st, w.messages);
  });
  benchmark::RegisterBenchmark((n + "/ours/RoundTrip").c_str(), [&w](benchmark::State& st) {
    decltype(w.obj) target;
    for (auto _ : st) {
      MsgPtr m(w.obj.ToMsg());
      benchmark::DoNotOptimize(target.Load(m.get()));
    }
    PerMessage(st, w.messages);
  });
  benchmark::RegisterBenchmark((n + "/protobuf/RoundTrip").c_str(), [&w](benchmark::State& st) {
    decltype(w.proto) target;
    std::string wire;
    for (auto _ : st) {
      w.proto.SerializeToString(&wire);
      benchmark::DoNotOptimize(target.ParseFromString(wire));
    }
    PerMessage(st, w.messages);
  });
  benchmark::RegisterBenchmark((n + "/ours/Dump").c_str(), [&w](benchmark::State& st) {
    for (auto _ : st) {
      CStream out;
      w.obj.Dump(&out);
      benchmark::DoNotOptimize(out.GetSize());
    }
    PerMessage(st, w.messages);
  });
  benchmark::RegisterBenchmark((n + "/protobuf/DebugString").c_str(), [&w](benchmark::State& st) {
    for (auto _ : st) benchmark::DoNotOptimize(w.proto.DebugString());
    PerMessage(st, w.messages);
  });
  benchmark::RegisterBenchmark((n + "/ours/Copy").c_str(), [&w](benchmark::State& st) {
    decltype(w.obj) target;
    for (auto _ : st) target.Copy(w.obj);
    PerMessage(st, w.messages);
  });
  benchmark::RegisterBenchmark((n + "/protobuf/CopyFrom").c_str(), [&w](benchmark::State& st) {
    decltype(w.proto) target;
    for (auto _ : st) target.CopyFrom(w.proto);
    PerMessage(st, w.messages);
  });
}

// Writing a message file's text from a tree of M_IrTargetSwitching whose
// every field is set, with state.range(0) more values: under tags that the
// class lacks (which the writer never asks for, but which every read of
// the runtime may have to pass over), spread among the class's own and out
// of tag order; or as elements of the class's int array. The time per value
// must stay flat from 10^3 to 10^5 values: the writer is linear in the tree.
MsgPtr SwitchingWith(int extra, bool unknownTags) {
  namespace schema = pricemsg::schema;
  const schema::ClassInfo& cls = *schema::FindClass(3685);
  std::vector<int> foreign;  // int fields of the dictionary that the class lacks
  for (const schema::FieldInfo& f : schema::Fields()) {
    if (foreign.size() == 64) break;
    if (f.kind == schema::Kind::kInt && !schema::FindMember(cls, f.tag)) foreign.push_back(f.tag);
  }
  MsgPtr tree = testing_support::BuildSample(3685, true);
  for (int i = 0; i < extra; ++i) {
    const int rc = unknownTags ? tree->SetValue(foreign[foreign.size() - 1 - i % foreign.size()],
                                                testing_support::Int(i))
                               : tree->SetValue(5146, i);  // iaAppPeriodNo
    if (rc < 0) std::abort();
  }
  return tree;
}

void WriteText(benchmark::State& st, bool unknownTags) {
  const int extra = static_cast<int>(st.range(0));
  MsgPtr tree = SwitchingWith(extra, unknownTags);
  std::string text;
  for (auto _ : st) {
    text.clear();
    if (MA_WriteMsgText(tree.get(), &text) != MSGTEXT_OK) std::abort();
    benchmark::DoNotOptimize(text.data());
  }
  st.counters["values"] = extra;
  st.counters["ns/value"] =
      benchmark::Counter(static_cast<double>(extra) * static_cast<double>(st.iterations()),
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void RegisterMsgText() {
  benchmark::RegisterBenchmark("MsgText/WriteUnknownTags",
                               [](benchmark::State& st) { WriteText(st, true); })
      ->Arg(1000)
      ->Arg(10000)
      ->Arg(100000);
  benchmark::RegisterBenchmark("MsgText/WriteArrayElements",
                               [](benchmark::State& st) { WriteText(st, false); })
      ->Arg(1000)
      ->Arg(10000)
      ->Arg(100000);
}

// Filling an array of n elements one Grow at a time, against one SetSize(n):
// both must take time in proportion to n. The elements are deleted outside
// the timing.
void ArrayBy(benchmark::State& st, bool grow) {
  const int n = static_cast<int>(st.range(0));
  for (auto _ : st) {
    M_SysReject_Array arr;
    if (grow) {
      for (int i = 0; i < n; ++i) arr.Grow();
    } else {
      arr.SetSize(n);
    }
    if (arr.GetSize() != n) std::abort();
    st.PauseTiming();
    arr.RemoveAll();
    st.ResumeTiming();
  }
  st.counters["ns/elem"] =
      benchmark::Counter(static_cast<double>(n) * static_cast<double>(st.iterations()),
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

const int kArraySizes[] = {100000, 1000000, 4000000};

void RegisterArrays() {
  for (bool grow : {true, false}) {
    benchmark::RegisterBenchmark(grow ? "Array/Grow" : "Array/SetSize",
                                 [grow](benchmark::State& st) { ArrayBy(st, grow); })
        ->Arg(kArraySizes[0])
        ->Arg(kArraySizes[1])
        ->Arg(kArraySizes[2])
        ->Unit(benchmark::kMillisecond);
  }
}

// Collects the times of all runs while printing them as usual.
class Collector : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
        // CPU time: on a shared machine, the time the work took, not the
        // time other programs held the cores.
        ns_[run.benchmark_name()] =
            run.GetAdjustedCPUTime() * 1e9 / benchmark::GetTimeUnitMultiplier(run.time_unit);
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }
  double Ns(const std::string& name) const {
    auto it = ns_.find(name);
    return it == ns_.end() ? 0.0 : it->second;
  }

 private:
  std::map<std::string, double> ns_;
};

// One line of the ratios: ours against `other` ("protobuf" or "floor").
void Ratio(const Collector& c, const char* w, const char* what, const char* ours, const char* other,
           const char* theirs, bool oursOverTheirs, const char* target) {
  std::string base = std::string(w) + "/";
  double a = c.Ns(base + "ours/" + ours);
  double b = c.Ns(base + other + "/" + theirs);
  if (a <= 0 || b <= 0) return;
  double ratio = oursOverTheirs ? a / b : b / a;
  std::printf("%-22s %-10s %-9s %12.0f %12.0f %8.2f  %s\n", w, what, other, a, b, ratio, target);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  testing_support::SampleShape w1;
  w1.tag = 4711;  // maRateCrvTenor
  w1.tagElements = 500;
  testing_support::SampleShape w2;
  w2.tag = 4938;  // maOptCmb
  w2.tagElements = 8;
  testing_support::SampleShape w3;
  w3.elements = 3;
  testing_support::SampleShape w4;
  Workload<M_KytRateCurveB, pricemsg_pb::M_KytRateCurveB> curve("W1_KytRateCurveB", 3691, w1);
  Workload<M_EqCmb, pricemsg_pb::M_EqCmb> cmb("W2_EqCmb", M_EqCmb().msgnum, w2);
  Workload<M_IrNoteFlterHwMc, pricemsg_pb::M_IrNoteFlterHwMc> note("W3_IrNoteFlterHwMc", 3721, w3);
  Workload<M_SysReject, pricemsg_pb::M_SysReject> reject("W4_SysReject", 10, w4);
  Register(curve);
  Register(cmb);
  Register(note);
  Register(reject);
  RegisterReflection(curve);
  RegisterReflection(cmb);
  RegisterReflection(note);
  RegisterMsgText();
  RegisterArrays();

  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);

  std::printf("\nRatios (CPU time per operation, one run, ns):\n");
  std::printf("%-22s %-10s %-9s %12s %12s %8s  %s\n", "workload", "operation", "against", "ours",
              "theirs", "ratio", "target");
  for (const char* w : {"W1_KytRateCurveB", "W2_EqCmb", "W3_IrNoteFlterHwMc", "W4_SysReject"}) {
    Ratio(collector, w, "load", "Load", "floor", "Load", true, "ours/floor <= 1.15");
    Ratio(collector, w, "tomsg", "ToMsg", "floor", "ToMsg", true, "ours/floor");
    Ratio(collector, w, "load", "Load", "protobuf", "Parse", true, "ours/theirs");
    Ratio(collector, w, "tomsg", "ToMsg", "protobuf", "Serialize", true, "ours/theirs");
    Ratio(collector, w, "roundtrip", "RoundTrip", "protobuf", "RoundTrip", true,
          "ours/theirs <= 0.9");
    Ratio(collector, w, "dump", "Dump", "protobuf", "DebugString", false, "theirs/ours >= 10");
    Ratio(collector, w, "copy", "Copy", "protobuf", "CopyFrom", true, "ours/theirs <= 0.5");
  }
  std::printf("\nReflection (CPU time per operation, one run, ns):\n");
  std::printf("%-22s %10s %10s %8s %10s %10s %10s %10s\n", "workload", "Visit", "Dump", "ratio",
              "GetByPath", "SetByPath", "Equal", "Diff");
  for (const char* w : {"W1_KytRateCurveB", "W2_EqCmb", "W3_IrNoteFlterHwMc"}) {
    const std::string b = std::string(w) + "/ours/";
    const double visit = collector.Ns(b + "Visit"), dump = collector.Ns(b + "Dump");
    if (visit <= 0 || dump <= 0) continue;
    std::printf("%-22s %10.0f %10.0f %8.2f %10.0f %10.0f %10.0f %10.0f\n", w, visit, dump,
                visit / dump, collector.Ns(b + "GetByPath"), collector.Ns(b + "SetByPath"),
                collector.Ns(b + "Equal"), collector.Ns(b + "Diff"));
  }
  bool arrays = false;
  for (int n : kArraySizes) {
    std::string arg = "/" + std::to_string(n);
    double grow = collector.Ns("Array/Grow" + arg), set = collector.Ns("Array/SetSize" + arg);
    if (grow <= 0 || set <= 0) continue;
    if (!arrays) {
      std::printf("\nArrays of M_SysReject (ns per element, one run):\n%10s %10s %10s %8s\n",
                  "elements", "Grow", "SetSize", "ratio");
      arrays = true;
    }
    std::printf("%10d %10.1f %10.1f %8.2f\n", n, grow / n, set / n, grow / set);
  }
  MsgPtr tree(cmb.obj.ToMsg());
  std::printf(
      "\nMemory of W2 (%d messages): CMsg tree %ld bytes, protobuf SpaceUsedLong %zu bytes\n",
      cmb.messages, tree->GetTreeMemory(), cmb.proto.SpaceUsedLong());
  benchmark::Shutdown();
  return 0;
}
