# ~/.profile of the demo user alice
