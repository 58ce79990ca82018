"""The message classes of the pricing service, one Python type each.

    import pricemsg
    req = pricemsg.M_FxBarr(mOptBarr={"dStrike": 1.1})
    msg = req.to_msg()                # a runtime message, for the service
    reply = pricemsg.M_FxBarr()
    reply.load(msg)
    reply == req                      # True

Every class of the schema is here under its own name, with its number,
family, role, description and fields(); pricemsg.find("fx barrier") searches
them by the words people use. The work is done by the C++ library, in
pricemsg._core.
"""

from ._core import *  # noqa: F401,F403
from ._core import Message, MessageError, Msg  # noqa: F401
