"""What every benchmark stands on: a bare helpdesk, the agent on a sample Mac, and measuring."""
