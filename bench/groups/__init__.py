"""The groups of the benchmarks, in the order in which they are measured and shown."""

from .calls import Calls
from .configuring import Configuring
from .logs import Logs
from .memory import Memory
from .services import Services
from .size import Size
from .starting import Starting
from .tools import Tools
from .verifying import Verifying

GROUPS = (
    Starting(),
    Configuring(),
    Verifying(),
    Services(),
    Calls(),
    Memory(),
    Tools(),
    Logs(),
    Size(),
)
