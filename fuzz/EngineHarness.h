#pragma once

#include "tests/support/EngineTest.h"

namespace fuzz {

/// The link manager and the engine over a simulated head unit. New for each input, so that each input can be repeated
/// alone. Shell commands do not run; the harness decides whether they succeed.
class EngineHarness : public EngineTest
{
public:
    EngineHarness();
    ~EngineHarness() override;

    /// Sets whether shell commands succeed. They do at first.
    void setCommandsSucceed(bool succeed);

    /// Checks what must hold after any input: the unit has sent only valid reply frames, no command ended by an
    /// exception, and the unit answers after noise that ends every frame that has begun.
    /// @throws Finding
    void check();

private:
    void TestBody() override {}
};

}  // namespace fuzz
