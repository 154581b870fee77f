#pragma once

#include "tests/support/EngineTest.h"

namespace fuzz {

/// The link manager and the engine over a simulated head unit, new for each input, so that every input can be repeated
/// alone. Shell commands are not carried out: they succeed or fail as the harness says.
class EngineHarness : public EngineTest
{
public:
    EngineHarness();
    ~EngineHarness() override;

    /// Whether shell commands succeed; at first they do.
    void setCommandsSucceed(bool succeed);

    /// Checks what must hold whatever came in: the unit has sent nothing but sound frames of replies, no command ended
    /// by an exception, and a station that sends noise until every beginning has ended is answered.
    /// @throws Finding
    void check();

private:
    void TestBody() override {}
};

}  // namespace fuzz
