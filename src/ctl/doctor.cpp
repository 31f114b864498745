#include "commands.h"
namespace Ctl
{
Exit doctor(Context&)
{
    return Done;
}
} // namespace Ctl
