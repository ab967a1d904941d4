package com.corvane;

// The one native of the analysis side's class that these tests call; bound
// by name in the agent library.
public class Natives {
    public static native String validateMethodPattern(String methodPattern);
}
