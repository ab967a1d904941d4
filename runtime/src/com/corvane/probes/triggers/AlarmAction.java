package com.corvane.probes.triggers;

import com.corvane.runtime.Callback;

/** Raises an alarm: the message, its macros replaced, in the messages table under "Alarm" and in the log. */
public class AlarmAction extends Action {
    public String myMessage;

    @Override
    protected void perform() {
        String text = PrintMessageAction.expand(myMessage == null ? "" : myMessage);
        Callback.messageToTable("Alarm", text, "");
        Callback.messageToLogFile("Alarm: " + text);
    }
}
