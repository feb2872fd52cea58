"""The local helpdesk: a server of its own for the device agent to talk to.

It restates the wire from the protocol description alone, so that a mistake of the agent is not
repeated here. Nothing in this package may import or read the agent's sources.
"""
