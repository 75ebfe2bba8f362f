#include "CheckJob.h"

#include "Bytes.h"
#include "IndexCheck.h"

namespace {

constexpr double kSmallestAdvance = 0.01;  // worth a message

std::string Encode(const CheckMessage& iCheck) {
    ByteWriter message;
    message.Put(iCheck.share);
    message.Put(iCheck.isLast);
    message.Put(iCheck.nProblems);
    for (const std::string& problem : iCheck.problems) message.PutList(problem);
    return message.Bytes();
}

}  // namespace

ChildProcess::Work CheckWork(const std::string& iFolder) {
    return [=](const Outlet& iOutlet) {
        CheckMessage check;
        const IndexCheckResult result = CheckIndex(iFolder, [&](double share) {
            if (share < check.share + kSmallestAdvance) return;
            check.share = share;
            iOutlet.Send(Encode(check));
        });
        check = {1.0, true, result.nProblems, result.problems};
        iOutlet.Send(Encode(check));
    };
}

bool DecodeCheck(const std::string& iMessage, CheckMessage& oCheck) {
    ByteReader message(iMessage);
    if (!message.Get(oCheck.share) || !message.Get(oCheck.isLast) ||
        !message.Get(oCheck.nProblems)) {
        return false;
    }
    oCheck.problems.clear();
    while (!message.IsAtEnd()) {
        if (!message.GetList(oCheck.problems.emplace_back())) return false;
    }
    return true;
}
